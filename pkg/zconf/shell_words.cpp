#include "shell_words.h"

namespace zconf
{

using kutil::View;

namespace
{

constexpr kutil::CharSet kTakenBehindBackslash("\\\"$`");

// One word being copied out of a line.
class WordReader
{
public:
    WordReader(View line, char *out) : line_(line), out_(out) {}

    bool at_end() const { return at_ == line_.size(); }
    size_t at() const { return at_; }
    char *out() const { return out_; }

    // Steps to the next word; false when there is none.
    bool skip_to_word()
    {
        while (!at_end() && kutil::is_blank(line_[at_]))
            at_++;
        return !at_end() && line_[at_] != '#';
    }

    // Copies the word with a NUL behind it. NULL, or what is wrong at at().
    const char *read_word()
    {
        while (!at_end() && !kutil::is_blank(line_[at_])) {
            const char c = line_[at_];
            if (const char *fault = c == '\'' || c == '"' ? read_quoted(c) : read_plain())
                return fault;
        }
        *out_++ = '\0';
        return nullptr;
    }

private:
    const char *read_plain()
    {
        const bool taken = line_[at_] == '\\';
        if (taken && at_ + 1 == line_.size())
            return "a backslash at the end of the line";
        at_ += taken;
        return take();
    }

    const char *read_quoted(char quote)
    {
        const size_t start = at_++;
        while (!at_end() && line_[at_] != quote) {
            const bool taken = quote == '"' && line_[at_] == '\\' && at_ + 1 < line_.size() &&
                               kTakenBehindBackslash.contains(line_[at_ + 1]);
            at_ += taken;
            if (const char *fault = take())
                return fault;
        }
        if (at_end()) {
            at_ = start;
            return "a quote that is not closed";
        }
        at_++;
        return nullptr;
    }

    const char *take()
    {
        if (line_[at_] == '\0')
            return "a NUL character";
        *out_++ = line_[at_++];
        return nullptr;
    }

    View line_;
    char *out_;
    size_t at_ = 0;
};

} // namespace

const char *ShellWords::split(View line, size_t *offset)
{
    // Every word takes at most its characters and a NUL, and a blank separates it from the next.
    const size_t most = line.size() / 2 + 2;
    text_.reset(kutil::new_text(kutil::add_sizes(line.size(), 1)));
    words_.reset(kutil::new_array<char *>(most));
    columns_.reset(kutil::new_array<size_t>(most));
    count_ = 0;
    WordReader reader(line, text_.get());
    while (reader.skip_to_word()) {
        words_.get()[count_] = reader.out();
        columns_.get()[count_++] = reader.at() + 1;
        if (const char *fault = reader.read_word()) {
            *offset = reader.at();
            return fault;
        }
    }
    words_.get()[count_] = nullptr;
    return nullptr;
}

} // namespace zconf
