// One line of the log while it is put together. Lives on the logging thread's stack; takes memory
// from malloc only when the line is long, and is cut when there is none.
#ifndef QDDSCORE_SRC_LINE_H
#define QDDSCORE_SRC_LINE_H

#include <cstdarg>
#include <cstddef>

namespace qddscore {

class Line {
public:
    Line() = default;
    Line(const Line &) = delete;
    Line &operator=(const Line &) = delete;
    ~Line();

    void append(const char *text);

    /// Appends what printf would print, without a final newline. A null format and one that cannot
    /// be printed leave a remark instead.
    void appendFormatted(const char *format, va_list arguments)
        __attribute__((format(printf, 2, 0)));

    /// Replaces every control character by its C escape.
    void escapeControls();

    /// Writes the line and a newline. One system call, unless the system takes only a part of it;
    /// threads wait for each other, so that the parts of a line stay together.
    void writeTo(int fd);

    const char *text() const
    {
        return data_;
    }
    size_t length() const
    {
        return length_;
    }

private:
    /// Makes room for `length` bytes, a newline and a NUL; false when memory is short.
    bool reserve(size_t length);
    void append(const char *text, size_t length);

    static constexpr size_t inlineSize = 1024;

    char inline_[inlineSize] = "";
    char *data_ = inline_;
    size_t capacity_ = inlineSize;
    size_t length_ = 0;
};

} // namespace qddscore

#endif
