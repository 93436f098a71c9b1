kutil_program(csv2sql)
