// QEL_REQUIRE(cond): a precondition of a public entry point that the library
// does not answer with a defined result, such as a NULL object.  Debug and
// sanitizer builds define QEL_CHECK_REQUIRES: there a violation names the
// function and the condition on stderr and aborts.  Elsewhere it is nothing.
#ifndef QEL_INTERNAL_REQUIRE_H
#define QEL_INTERNAL_REQUIRE_H

#ifdef QEL_CHECK_REQUIRES
#include <cstdio>
#include <cstdlib>

#define QEL_REQUIRE(cond)                                             \
  do {                                                                \
    if (!(cond)) {                                                    \
      std::fprintf(stderr, "qel: %s requires %s\n", __func__, #cond); \
      std::abort();                                                   \
    }                                                                 \
  } while (0)
#else
#define QEL_REQUIRE(cond) \
  do {                    \
  } while (0)
#endif

#endif
