/*
 * qel/stream.hpp - owner of a byte stream (qel_stream)
 * One piece of the C++ interface; include <qel.hpp> rather than this file.
 */
#ifndef QEL_STREAM_HPP
#define QEL_STREAM_HPP

#include <qel/common.hpp>

namespace qel {

namespace detail {
struct stream_traits {
    static qel_stream empty() noexcept {
        qel_stream s;
        qel_stream_init(&s);
        return s;
    }
    static void free(qel_stream &s) noexcept { qel_stream_term(&s); }
};
} // namespace detail

/* Owner of a qel_stream: bytes that grow as they are appended (JSON text is
 * written into one).  Move-only; frees its bytes on destruction. */
class stream : public unique<qel_stream, detail::stream_traits> {
public:
    stream() = default;

    qel_stream *get() noexcept { return &held(); }
    const qel_stream *get() const noexcept { return &held(); }
    [[nodiscard]] std::int64_t size() const noexcept { return held().length; }
    [[nodiscard]] bool empty() const noexcept { return held().length == 0; }
    /* The bytes in use, valid until the stream next changes; only of a named
     * stream (a temporary's would dangle). */
    [[nodiscard]] std::string_view view() const &noexcept { return detail::view_of(held().bytes, held().length); }
    void view() const && = delete;
    void append(std::string_view bytes) noexcept {
        qel_stream_append(get(), bytes.data(), static_cast<std::int64_t>(bytes.size()));
    }
    /* Empties it; the capacity stays for the next use. */
    void clear() noexcept { qel_stream_shrink(get(), 0); }
};

} // namespace qel

#endif /* QEL_STREAM_HPP */
