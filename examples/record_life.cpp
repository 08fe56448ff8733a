// The life of a record, in C++: a schema, a record built through a resolver,
// a number and strings stored in its members, a deep copy, and freeing.
// Everything is freed by the owners' destructors, the schema last (it is
// declared first, so it goes last).
#include <qel.hpp>

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

namespace {

int failures = 0;

void check(bool ok, const char *what) {
    if (!ok) {
        std::fprintf(stderr, "wrong: %s\n", what);
        ++failures;
    }
}

} // namespace

int main() {
    constexpr std::uint32_t person = 20; // our record type code

    // 1. A schema: member id (64-bit integer, single) and tags (strings, array).
    qel::schema schema;
    schema.add("id", qel::code::i64).add("tags", qel::code::bytes, qel::form::multi);
    std::printf("schema: %lld members\n", static_cast<long long>(schema.size()));

    {
        // 2. A record of code 20.  The resolver is any callable; this one
        //    captures the schema and counts its calls.
        int resolver_calls = 0;
        auto resolve = [&](std::uint32_t type) -> qel_schema * {
            ++resolver_calls;
            return type == person ? schema.get() : nullptr;
        };
        qel::var record = qel::var::make(person, qel::form::single, resolve);
        std::printf("record of code %u built, resolver asked %d times (record, id, tags)\n", record.type(),
                    resolver_calls);
        check(resolver_calls == 3, "the resolver is asked for the record and each member");

        // 3. The member id holds 42, inline in the member.
        record["id"].set(42);
        std::printf("id = %lld\n", static_cast<long long>(record["id"].get<std::int64_t>()));
        check(record["id"].get<std::int64_t>() == 42, "id reads back 42");

        // 4. Strings appended to tags are copied into the member's array.
        std::string colour = "red";
        record["tags"].add(colour);
        colour = "overwritten"; // the record kept its own copy
        record["tags"].add("green");
        std::printf("tags:");
        for (std::string_view tag : record["tags"].values<std::string_view>())
            std::printf(" %.*s", static_cast<int>(tag.size()), tag.data());
        std::printf("\n");
        check(record["tags"].size() == 2 && record["tags"].get<std::string_view>(0) == "red",
              "tags hold red and green");

        // 5. Copy into another record: members are matched by name.
        qel::var copy = qel::var::make(person, qel::form::single, resolve);
        copy.copy_from(record);
        record["id"].set(7); // the copy is independent
        std::printf("copy: ");
        for (auto member : copy.members())
            std::printf("%.*s(code %u) ", static_cast<int>(member.name.size()), member.name.data(),
                        member.value.type());
        std::printf("\ncopy id = %lld, original id now %lld\n", static_cast<long long>(copy["id"].get<std::int64_t>()),
                    static_cast<long long>(record["id"].get<std::int64_t>()));
        check(copy["id"].get<std::int64_t>() == 42, "the copy keeps id 42");
        check(copy["tags"].get<std::string_view>(1) == "green", "the copy has its own tags");
        check(copy != record && (copy <=> record) == 0,
              "== compares members (id differs); <=> orders records of one code as equivalent");
        record["id"].set(42);
        check(copy == record, "with id 42 again the two are equal");

        // 6. Leaving the scope frees both records and all their members.
    }
    std::printf("records freed; the schema goes last\n");

    if (failures != 0) return 1;
    std::printf("record life: ok\n");
    return 0;
}
