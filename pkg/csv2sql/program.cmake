kutil_program(csv2sql LIBC_ONLY)
