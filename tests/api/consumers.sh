#!/usr/bin/env bash
# Installs a build and uses it as strangers do: a C compiler with pkg-config, a CMake project with C only, C++20; each
# with the shared and the static library; from a prefix with a blank, and staged with DESTDIR.
# usage: consumers.sh BUILD_DIR CC CXX CMAKE
set -euo pipefail
build=$1 cc=$2 cxx=$3 cmake=$4
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
expected='err 1 8'
faults=0

check() {
    local what=$1 output
    shift
    if output=$("$@" 2>&1) && [ "$output" = "$expected" ]; then
        echo "ok: $what"
    else
        echo "failed: $what: $output"
        faults=$((faults + 1))
    fi
}

prefix="$work/a prefix"
"$cmake" --install "$build" --prefix "$prefix" >"$work/install.log"
pc_dir=$(dirname "$(find "$prefix" -name kutil.pc)")
libdir=$(dirname "$pc_dir")
export PKG_CONFIG_PATH=$pc_dir LD_LIBRARY_PATH=$libdir
cp "$here/consumer.c" "$work/consumer.c"
cp "$here/consumer.c" "$work/consumer.cpp"
# C++ takes no string literal as a void pointer.
sed -i 's/count_reports, "3 of 5"/count_reports, const_cast<char *>("3 of 5")/; s/, data)/, static_cast<char *>(data))/;
        s/= malloc_e(8)/= static_cast<char *>(malloc_e(8))/' "$work/consumer.cpp"
strict=(-Wall -Wextra -Wpedantic -Werror)

# pkg-config escapes the blank for a shell, hence eval.
compile() { # compiler source output standard libs...
    local compiler=$1 source=$2 output=$3 standard=$4 cflags
    shift 4
    cflags=$(pkg-config --cflags kutil)
    eval "\"\$compiler\" -std=\$standard \"\${strict[@]}\" $cflags \"\$source\" -o \"\$output\" $*"
}
shared=$(pkg-config --libs kutil)
static=$(pkg-config --static --libs kutil)
compile "$cc" "$work/consumer.c" "$work/c-shared" c11 "$shared"
compile "$cc" "$work/consumer.c" "$work/c-static" c11 -static "$static"
compile "$cxx" "$work/consumer.cpp" "$work/cxx-shared" c++20 "$shared"
compile "$cxx" "$work/consumer.cpp" "$work/cxx-static" c++20 "${static/-lkutil/-l:libkutil.a}"
for program in c-shared c-static cxx-shared cxx-static; do
    check "pkg-config, $program" "$work/$program"
done

for language in C CXX; do
    source=$work/cmake-$language
    mkdir "$source"
    extension=c
    [ $language = C ] || extension=cpp
    cp "$work/consumer.$extension" "$source/"
    cat >"$source/CMakeLists.txt" <<END
cmake_minimum_required(VERSION 3.25)
project(consumer LANGUAGES $language)
set(CMAKE_CXX_STANDARD 20)
find_package(kutil REQUIRED)
add_executable(with_shared consumer.$extension)
target_link_libraries(with_shared PRIVATE kutil::kutil)
add_executable(with_static consumer.$extension)
target_link_libraries(with_static PRIVATE kutil::kutil-static)
END
    CC=$cc CXX=$cxx "$cmake" -S "$source" -B "$source/build" -DCMAKE_PREFIX_PATH="$prefix" >"$source/log" 2>&1 &&
        "$cmake" --build "$source/build" >>"$source/log" 2>&1 || cat "$source/log"
    for program in with_shared with_static; do
        check "CMake, $language, $program" "$source/build/$program"
    done
done

DESTDIR="$work/stage" "$cmake" --install "$build" --prefix /usr >"$work/install.log"
if [ -f "$work/stage/usr/include/kutil/util/kutil.h" ] && [ -n "$(find "$work/stage/usr" -name kutil.pc)" ]; then
    echo "ok: DESTDIR"
else
    echo "failed: DESTDIR: $(find "$work/stage" | head)"
    faults=$((faults + 1))
fi
[ "$faults" -eq 0 ]
