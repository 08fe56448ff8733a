/*
 * qel/stream.hpp - owner of a byte stream (qel_stream)
 * One piece of the C++ interface; include <qel.hpp> rather than this file.
 */
#ifndef QEL_STREAM_HPP
#define QEL_STREAM_HPP

#include <qel/common.hpp>

namespace qel {

/* Owner of a qel_stream: bytes that grow as they are appended (JSON text is
 * written into one).  Move-only; frees its bytes on destruction. */
class stream {
public:
    stream() noexcept { qel_stream_init(&s_); }
    stream(stream &&o) noexcept : s_(o.s_) { qel_stream_init(&o.s_); }
    stream &operator=(stream &&o) noexcept {
        if (this != &o) {
            qel_stream_term(&s_);
            s_ = o.s_;
            qel_stream_init(&o.s_);
        }
        return *this;
    }
    stream(const stream &) = delete;
    stream &operator=(const stream &) = delete;
    ~stream() { qel_stream_term(&s_); }

    qel_stream *get() noexcept { return &s_; }
    const qel_stream *get() const noexcept { return &s_; }
    [[nodiscard]] std::int64_t size() const noexcept { return s_.length; }
    [[nodiscard]] bool empty() const noexcept { return s_.length == 0; }
    /* The bytes in use, valid until the stream next changes; only of a named
     * stream (a temporary's would dangle). */
    [[nodiscard]] std::string_view view() const &noexcept { return detail::view_of(s_.bytes, s_.length); }
    void view() const && = delete;
    void append(std::string_view bytes) noexcept {
        qel_stream_append(&s_, bytes.data(), static_cast<std::int64_t>(bytes.size()));
    }
    /* Empties it; the capacity stays for the next use. */
    void clear() noexcept { qel_stream_shrink(&s_, 0); }

private:
    qel_stream s_;
};

} // namespace qel

#endif /* QEL_STREAM_HPP */
