// Searching, replacing and stripping of any texts, against slow models of them.

#include "util/str.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

// The input is up to three texts, each ended by a NUL: what is searched, what is searched for, what replaces
// it.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::string texts[3];
    size_t used = 0;
    for (size_t i = 0; i < size && used < 3; i++) {
        if (data[i])
            texts[used] += static_cast<char>(data[i]);
        else
            used++;
    }
    const auto &[text, from, to] = texts;
    const auto require = [](bool true_of_every_input) {
        if (!true_of_every_input)
            abort();
    };

    char *s = nullptr;
    str_replace(str_cpy(&s, text.c_str()), from.c_str(), to.c_str());
    std::string model = text;
    size_t hits = 0;
    for (size_t hit = from.empty() ? model.npos : model.find(from); hit != model.npos;
         hit = model.find(from, hit + to.size()), hits++)
        model.replace(hit, from.size(), to);
    require(model == s);
    require(str_count_str(text.c_str(), from.c_str()) == hits);

    const size_t removed = str_count_chrs(text.c_str(), from.c_str());
    require(strlen(*str_strip(str_cpy(&s, text.c_str()), from.c_str(), 0)) == removed);
    require(strlen(*str_strip(str_cpy(&s, text.c_str()), from.c_str(), 1)) == text.size() - removed);
    require(strlen(*str_strip_ansi(str_cpy(&s, text.c_str()))) <= text.size());
    str_trim(str_cpy(&s, text.c_str()));
    require(str_wscmp(s, text.c_str()) == 0);
    require(str_wscmp(text.c_str(), from.c_str()) == -str_wscmp(from.c_str(), text.c_str()));
    require((strstrcase(text.c_str(), from.c_str()) != nullptr) >=
            (!text.empty() && strstr(text.c_str(), from.c_str())));
    require(str_cspn(text.c_str(), from.c_str()) <= text.size());
    str_cmpdelim(text.c_str(), to.c_str(), from.c_str());
    str_rcasecmpsub(text.c_str(), from.c_str());

    std::string joined;
    str_cpy(&s, text.c_str());
    for (char *token = strtokz(s, from.c_str()); token; token = strtokz(nullptr, from.c_str()))
        joined.append(token).append(1, '|');
    require(joined.size() == text.size() + 1);
    str_free(&s);
    return 0;
}
