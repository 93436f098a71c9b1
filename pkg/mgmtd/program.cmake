kutil_program(mgmtd)
