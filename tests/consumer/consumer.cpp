// Built against an installed prefix: proves the C++ headers ship whole.
#include <qel.hpp>
#include <cstdio>

int main() {
  qel::var v(qel::code::i64, qel::form::multi);
  v.add(41);
  v.add(1);
  const auto sum = v.get<std::int64_t>(0) + v.get<std::int64_t>(1);
  qel::xvar x(qel::xcode::f64);
  x.set(0, 0.5);
  std::printf("sum %lld, %g\n", static_cast<long long>(sum), x.get<double>(0));
  return sum == 42 && x.get<double>(0) == 0.5 ? 0 : 1;
}
