/* Compiled with -std=c99 -pedantic -Werror: the public headers are C99. */
#include <qel.h>
#include <qel_json.h>
#include <qel_std.h>

int qel_header_c99_probe(void);
int qel_header_c99_probe(void) { return (int)sizeof(qel_var) + (int)sizeof(qel_xvars) + (int)sizeof(qel_json_error); }
