kutil_program(zconf)
