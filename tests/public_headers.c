/* The public headers as a host includes them, beside globals of its own
 * named like words the headers might use. */
#include <kz_id3.h>
#include <kz_sys.h>
#include <kz_host.h>

const char* version = "host 2.0";
int level = 30;
int context = 0;
int stream = 0;
