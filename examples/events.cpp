// Newline-delimited JSON events, in C++: each line is read into one reused
// record through a schema (every member required, null refused, other
// members skipped); bad lines are reported as events:LINE:COLUMN: cause and
// left out.  The rest are counted per host and give per-metric minimum,
// maximum and mean; hosts are ordered by count, then name, in one sort, and
// the summary is printed as JSON.  Exits nonzero if it is not the expected
// one.
#include <qel.hpp>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <string_view>
#include <tuple>

namespace {

// Our record codes.
constexpr std::uint32_t event_code = 20, summary_code = 21, host_code = 22, metric_code = 23;

constexpr std::string_view input = R"({"ts": 1700000000, "host": "web-01", "metric": "cpu", "value": 0.42}
{"ts": 1700000001, "host": "web-02", "metric": "cpu", "value": 0.97}
{"ts": 1700000002, "host": "db-01", "metric": "disk", "value": 71.5}
{"ts": 1700000003, "host": "web-01", "metric": "cpu", "value": null}
{"ts": 1700000004, "host": "web-01", "metric": "mem", "value": 2048}
not json at all
{"ts": -, "host": "web-02", "metric": "cpu", "value": 0.5}
{"ts": 1700000007, "host": "web-02", "metric": "cpu"}
{"ts": 1700000008, "host": "db-01", "metric": "disk", "value": 73.25, "unit": "%"}
{"ts": 1700000009, "host": "web-03", "metric": "cpu", "value": 0.05}
{"ts": 1700000010, "host": "web-01", "metric": "cpu", "value": "high"}

{"ts": 1700000012, "host": "web-02", "metric": "mem", "value": 4096}
{"ts": 1700000013, "host": "db-01", "metric": "disk", "value": 70}
{"ts": 1700000014, "host": "web-01", "metric": "cpu", "value": 0.61}
{"ts": 1700000015, "host": "web-03", "metric": "cpu", "value": 0.33
{"ts": 1700000016, "host": "web-03", "metric": "cpu", "value": 0.29}
{"ts": 1700000017, "host": null, "metric": "cpu", "value": 0.3}
{"ts": 1700000018, "host": "web-02", "metric": "cpu", "value": 1e400}
{"ts": 1700000019, "host": "web-02", "metric": "cpu", "value": 0.88}
)";

constexpr std::string_view expected =
    R"({"events":11,"rejected":8,"hosts":[{"host":"db-01","events":3},{"host":"web-01","events":3},)"
    R"({"host":"web-02","events":3},{"host":"web-03","events":2}],"metrics":[)"
    R"({"metric":"cpu","count":6,"min":0.05,"max":0.97,"mean":0.5366666666666666},)"
    R"({"metric":"disk","count":3,"min":70.0,"max":73.25,"mean":71.58333333333333},)"
    R"({"metric":"mem","count":2,"min":2048.0,"max":4096.0,"mean":3072.0}]})";

// The element of `rows` whose member `key` is `name`, appended with its
// members when there is none.
qel::var_ref row_for(qel::var_ref rows, std::string_view key, std::string_view name) {
    for (qel::var_ref row : rows.elements())
        if (row.at(key).get<std::string_view>() == name) return row;
    qel::var_ref row = rows.add_new();
    row.at(key).set(name);
    return row;
}

} // namespace

int main() {
    qel::schema event, summary, host, metric;
    event.add("ts", qel::code::i64).add("host", qel::code::bytes).add("metric", qel::code::bytes);
    event.add("value", qel::code::f64);
    summary.add("events", qel::code::i64).add("rejected", qel::code::i64);
    summary.add("hosts", host_code, qel::form::multi).add("metrics", metric_code, qel::form::multi);
    host.add("host", qel::code::bytes).add("events", qel::code::i64);
    metric.add("metric", qel::code::bytes).add("count", qel::code::i64).add("min", qel::code::f64);
    metric.add("max", qel::code::f64).add("mean", qel::code::f64);
    auto resolve = [&](std::uint32_t type) -> const qel::schema* {
        switch (type) {
        case event_code: return &event;
        case summary_code: return &summary;
        case host_code: return &host;
        case metric_code: return &metric;
        default: return nullptr;
        }
    };

    qel::var e = qel::var::make(event_code, qel::form::single, resolve);
    qel::var sum = qel::var::make(summary_code, qel::form::single, resolve);
    std::int64_t line_number = 0, good = 0, rejected = 0;
    for (std::string_view rest = input; !rest.empty();) {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(rest.size(), line.size() + 1));
        ++line_number;
        if (line.empty()) continue;
        const qel::json::result r = qel::json::read(e, line, resolve, qel::json::strict | qel::json::skip_unknown);
        if (!r) { // the record is as it was; the line is left out
            std::fprintf(stderr, "events:%lld:%lld: %.*s\n", static_cast<long long>(line_number),
                         static_cast<long long>(r.column()), static_cast<int>(r.cause().size()), r.cause().data());
            ++rejected;
            continue;
        }
        ++good;
        qel::var_ref h = row_for(sum["hosts"], "host", e["host"].get<std::string_view>());
        h["events"].set(h["events"].get<std::int64_t>() + 1);
        const double value = e["value"].get<double>();
        qel::var_ref m = row_for(sum["metrics"], "metric", e["metric"].get<std::string_view>());
        const std::int64_t n = m["count"].get<std::int64_t>();
        m["count"].set(n + 1);
        if (n == 0 || value < m["min"].get<double>()) m["min"].set(value);
        if (n == 0 || value > m["max"].get<double>()) m["max"].set(value);
        m["mean"].set(m["mean"].get<double>() + value); // the running sum until the end
    }
    sum["events"].set(good);
    sum["rejected"].set(rejected);
    for (qel::var_ref m : sum["metrics"].elements())
        m["mean"].set(m["mean"].get<double>() / static_cast<double>(m["count"].get<std::int64_t>()));
    // Busiest hosts first, then by name: one stable sort by both members.
    sum["hosts"].sort_by([](qel::var_cref a, qel::var_cref b) {
        return std::tuple(-a["events"].get<std::int64_t>(), a["host"].get<std::string_view>()) <
               std::tuple(-b["events"].get<std::int64_t>(), b["host"].get<std::string_view>());
    });

    const qel::json::text out = qel::json::write(sum);
    std::printf("%s\n", out.json.c_str());
    if (!out || out.json != expected) {
        std::fprintf(stderr, "FAILED: the summary differs from the expected one:\n%.*s\n",
                     static_cast<int>(expected.size()), expected.data());
        return 1;
    }
    return 0;
}
