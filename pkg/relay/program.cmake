kutil_program(relay)
