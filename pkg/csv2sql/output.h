#ifndef CSV2SQL_OUTPUT_H
#define CSV2SQL_OUTPUT_H

#include "common/durable_save.h"
#include "common/file_lock.h"
#include "options.h"
#include "util/internal/text_builder.h"

namespace csv2sql
{

// Where the result goes: standard output, or a file that is replaced at once in the end. Something else that
// is there already, as a pipe or a device, is written as it is. Failing is remembered, so that writers need
// not look.
class Output
{
public:
    Output() = default;
    ~Output()
    {
        file_.abandon(); // while nobody else may have one of that name
        lock_.remove();
    }
    Exit open(const char *path);
    // What is written next, to be appended to.
    kutil::TextBuilder &text() { return text_; }
    // Writes when much is waiting. kUnwritten when it cannot be written, now or before.
    Exit flush_some() { return text_.size() < kMuch ? result_ : flush(); }
    // Puts the result in place. Unless this is called the old file stays.
    Exit close();

private:
    static constexpr size_t kMuch = 64 * 1024;
    Exit flush();

    const char *name_ = nullptr;
    kutil::TextBuilder text_;
    kutil::common::DurableFile file_;
    kutil::common::FileLock lock_;
    kutil::Fd other_;
    int fd_ = -1;
    bool replaces_ = false;
    Exit result_ = kDone;
};

} // namespace csv2sql

#endif
