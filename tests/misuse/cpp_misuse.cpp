// Misuses of the C++ layer that must not compile, one per MISUSE number;
// check_misuse.cmake builds each and wants an error.  MISUSE 0 is the
// correct use of the same calls and must build, so a failure of the others
// proves the misuse is refused, not that this file is broken.  Most are
// views into a temporary owner, which would dangle after the statement.
#include <qel.hpp>

qel::var make_person(const qel::schema &s) { return qel::var::make(20, qel::form::single, s); }

int main() {
  qel::schema s;
  s.add("id", qel::code::i64);
  qel::var p = make_person(s);
  qel::var arr = qel::var::make(20, qel::form::multi, s);
  qel::xvar x(qel::xcode::bytes);
#if MISUSE == 0
  qel::var owner(qel::code::i64, qel::form::multi);
  qel::var_ref r = owner;
  r.add(5);
  qel::var rec = qel::var::make(20, qel::form::single, s);
  qel::var_ref id = p["id"], id2 = p.member("id"), e = arr.add_new(), e0 = arr.element(0), e1 = arr[0];
  std::string_view name = s.at(0).name, text = x.get<std::string_view>();
  const qel::json::result read = qel::json::read(p, "{}");
  qel::stream out;
  text = read.cause().empty() ? out.view() : text;
  const int64_t n = make_person(s).get<int64_t>() + p["id"].clone().get<int64_t>() + p.at("id").get<int64_t>();
  const auto &kept = qel::schema().add("id", qel::code::i64);  // a value: the reference keeps it alive
  return static_cast<int>(owner.size() + rec.size() + n + name.size() + text.size() + kept.size() + id.type() +
                          id2.type() + e.type() + e0.type() + e1.type() + p.find_member("id")->type());
#elif MISUSE == 1
  qel::var_ref r = qel::var(qel::code::i64, qel::form::multi);  // freed at the semicolon
  r.add(5);
#elif MISUSE == 2
  qel::var rec = qel::var::make(20, qel::form::single, qel::schema().add("id", qel::code::i64));
#elif MISUSE == 3
  qel::var v(qel::code::i64, qel::form::multi);
  v.size();  // a discarded read is a mistake (-Werror)
#elif MISUSE == 4
  [[maybe_unused]] qel::var_ref age = make_person(s)["id"];
#elif MISUSE == 5
  [[maybe_unused]] std::string_view v = p["id"].clone().get<std::string_view>();
#elif MISUSE == 6
  [[maybe_unused]] qel::var_ref age = make_person(s).member("id");
#elif MISUSE == 7
  [[maybe_unused]] qel::var_ref e = std::move(arr).element(0);
#elif MISUSE == 8
  [[maybe_unused]] qel::var_ref e = qel::var::make(20, qel::form::multi, s).add_new();
#elif MISUSE == 9
  [[maybe_unused]] qel::var_ref e = qel::var::make(20, qel::form::multi, s)[0];
#elif MISUSE == 10
  [[maybe_unused]] std::string_view name = qel::schema().add("id", qel::code::i64).at(0).name;
#elif MISUSE == 11
  [[maybe_unused]] auto m = make_person(s).find_member("id");
#elif MISUSE == 12
  [[maybe_unused]] qel::var_ref m = make_person(s).at("id");
#elif MISUSE == 13
  [[maybe_unused]] std::string_view t = qel::xvar(qel::xcode::bytes).get<std::string_view>();
#elif MISUSE == 14
  [[maybe_unused]] uint64_t *b = qel::xvar(qel::xcode::i64, qel::form::multi).add_x(5);
#elif MISUSE == 15
  [[maybe_unused]] auto bytes = qel::var(qel::code::bytes).buffer();
#elif MISUSE == 16
  [[maybe_unused]] std::string_view cause = qel::json::read(p, "{}").cause();
#elif MISUSE == 17
  [[maybe_unused]] std::string_view bytes = qel::stream().view();
#endif
  return 0;
}
