// The version of the library, as the headers it was built with give it.
#include <qel.h>

// Requires nothing; QEL_VERSION of this build.
extern "C" QEL_API int qel_version(void) { return QEL_VERSION; }
