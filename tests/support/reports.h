#ifndef KUTIL_TESTS_SUPPORT_REPORTS_H
#define KUTIL_TESTS_SUPPORT_REPORTS_H

#include "util/zel_error.h"

#include <cstdint>
#include <cstdio>
#include <string>
#include <utility>

// Catches the reports of this process while it lives, instead of letting them go to syslog or standard error.
class Reports
{
public:
    Reports()
    {
        static const bool initialized = (zel_error_init_nodefault(), zel_error_set_mt_id(), true);
        (void)initialized;
        zel_error_register(0, add, this);
    }
    ~Reports() { zel_error_unregister(add, this); }
    Reports(const Reports &) = delete;
    Reports &operator=(const Reports &) = delete;

    // What was reported since the last call, one "FLAGS MESSAGE\n" each, flags in hexadecimal: "4 no such
    // file\n".
    std::string take() { return std::exchange(text_, std::string()); }

private:
    static int add(void *self, const char *message, int, uint32_t flags)
    {
        char head[16];
        snprintf(head, sizeof(head), "%x ", static_cast<unsigned>(flags));
        static_cast<Reports *>(self)->text_ += head + std::string(message) + "\n";
        return 0;
    }
    std::string text_;
};

#endif
