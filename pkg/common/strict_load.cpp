#include "strict_load.h"

#include "util/internal/fd.h"
#include "util/internal/text_builder.h"
#include "util/set_text.h"

#include <algorithm>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>

namespace kutil::common
{

namespace
{

constexpr size_t kLevels = 256; // what set_read_check accepts
constexpr size_t kPiece = 65536;

// What set_read_check found at `offset`, for a person.
const char *fault_name(View text, size_t offset)
{
    if (offset >= text.size())
        return "the text ends before the tree does";
    const View before = sub(text, 0, offset);
    const auto opened = std::count(before.begin(), before.end(), '(');
    const auto levels = static_cast<size_t>(opened - std::count(before.begin(), before.end(), ')'));
    switch (text[offset]) {
    case '\0':
        return "a NUL byte";
    case '&':
        return starts_with(sub(text, offset), "&00;")
                   ? "an escaped NUL byte"
                   : "not an escape of \"&\", two hexadecimal digits and \";\"";
    case '(':
        if (levels == 0)
            return "a second top node";
        return levels >= kLevels ? "more than 256 levels of nodes"
                                 : "a node without a name has more than a value";
    case '\n':
    case '\r':
        if (offset > 0 && text[offset - 1] == '(')
            return "a node without a name has more than a value";
        break;
    case ')':
        return "a \")\" without its \"(\"";
    default:
        break;
    }
    if (offset == 0)
        return "a tree starts with \"(\"";
    return levels == 0 ? "text behind the tree" : "text behind a node";
}

} // namespace

bool file_text_read(int fd, const char *name, FileText *text, Problem *problem)
{
    struct stat status;
    const bool has_size = fstat(fd, &status) == 0 && S_ISREG(status.st_mode) && status.st_size > 0;
    if (has_size && status.st_size > INT32_MAX)
        return problem->set("%s: larger than %d bytes", name, INT32_MAX);
    TextBuilder all(add_sizes(has_size ? static_cast<size_t>(status.st_size) : 0, kPiece));
    for (;;) {
        char *room = all.room(kPiece);
        const ssize_t count = read(fd, room, kPiece);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return problem->set_errno(name, "cannot read");
        if (count == 0)
            break;
        all.commit(static_cast<size_t>(count));
        if (all.size() > INT32_MAX)
            return problem->set("%s: larger than %d bytes", name, INT32_MAX);
    }
    text->length = all.size();
    text->text.reset(all.release());
    return true;
}

Load file_text_load(const char *path, FileText *text, Problem *problem)
{
    const Fd fd(open(path, O_RDONLY | O_CLOEXEC | O_NOCTTY));
    if (fd.valid())
        return file_text_read(fd.get(), path, text, problem) ? Load::done : Load::failed;
    const bool missing = errno == ENOENT;
    problem->set("%s: %s", path, strerror(errno));
    return missing ? Load::missing : Load::failed;
}

set *strict_read(const char *name, View text, Problem *problem)
{
    size_t offset = 0;
    if (set_read_check(text.data(), text.size(), &offset) == 0) {
        set *tree = set_read(text.data());
        if (!tree)
            problem->set("%s: no tree could be made of it", name);
        return tree;
    }
    size_t line = 0;
    size_t column = 0;
    find_position(text, offset, &line, &column);
    problem->set("%s:%zu:%zu: %s", name, line, column, fault_name(text, offset));
    return nullptr;
}

Load strict_load(const char *path, set **tree, FileText *text, Problem *problem)
{
    const Load loaded = file_text_load(path, text, problem);
    if (loaded != Load::done)
        return loaded;
    *tree = strict_read(path, text->view(), problem);
    return *tree ? Load::done : Load::failed;
}

bool has_dos_line_ends(View text)
{
    const size_t end = text.find('\n');
    return end != View::npos && end > 0 && text[end - 1] == '\r';
}

void find_position(View text, size_t offset, size_t *line, size_t *column)
{
    const View before = sub(text, 0, offset);
    *line = static_cast<size_t>(std::count(before.begin(), before.end(), '\n')) + 1;
    const size_t line_end = before.rfind('\n');
    *column = before.size() - (line_end == View::npos ? 0 : line_end + 1) + 1;
}

} // namespace kutil::common
