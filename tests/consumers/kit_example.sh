#!/bin/sh
# Prints the whole program of kz_host.h's opening comment, so that tests
# build exactly what the header shows.
set -eu
sed -n '/^ \*   #include <errno.h>/,/^ \*   }$/{s/^ \*   //;s/^ \*$//;p;}' "${1:?usage: kit_example.sh kz_host.h}"
