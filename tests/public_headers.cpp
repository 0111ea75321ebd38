// The C check of the public headers, compiled as C++.
#include "public_headers.c"
