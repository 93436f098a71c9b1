#include "set_value.h"

char *set_get_path_str(set **handle, const char *path) { return set_son_get_str(set_get(handle, path)); }

char *set_get_path_strz(set **handle, const char *path) { return set_son_get_strz(set_get(handle, path)); }

int set_get_path_int(set **handle, const char *path) { return set_son_get_int(set_get(handle, path)); }
