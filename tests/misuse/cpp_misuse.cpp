// Misuses of the C++ layer that must not compile, one per MISUSE number;
// check_misuse.cmake builds each and wants an error.  MISUSE 0 is the
// correct use of the same calls and must build, so a failure of the others
// proves the misuse is refused, not that this file is broken.
#include <qel.hpp>

int main() {
  qel::schema s;
  s.add("id", qel::code::i64);
#if MISUSE == 0
  qel::var owner(qel::code::i64, qel::form::multi);
  qel::var_ref r = owner;
  r.add(5);
  qel::var rec = qel::var::make(20, qel::form::single, s);
  return static_cast<int>(owner.size() + rec.size());
#elif MISUSE == 1
  qel::var_ref r = qel::var(qel::code::i64, qel::form::multi);  // freed at the semicolon
  r.add(5);
#elif MISUSE == 2
  qel::var rec = qel::var::make(20, qel::form::single, qel::schema().add("id", qel::code::i64));
#elif MISUSE == 3
  qel::var v(qel::code::i64, qel::form::multi);
  v.size();  // a discarded read is a mistake (-Werror)
#endif
  return 0;
}
