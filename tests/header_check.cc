#include "header_check.c"
