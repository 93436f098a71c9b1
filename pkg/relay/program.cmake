kutil_program(relay LIBC_ONLY)
