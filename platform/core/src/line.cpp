// Rendering of log lines; see line.h.
#include "line.h"

#include <errno.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

namespace qddscore {

namespace {

constexpr size_t tailSize = 2; // newline and NUL behind the text
constexpr size_t maxEscape = 4;

bool isControl(char character)
{
    return (character >= 0 && character < 0x20) || character == 0x7f;
}

/// Writes the escape of a control character; returns its length.
size_t escape(char character, char *out)
{
    static const char letters[] = "abtnvfr"; // \a is 7, \r is 13
    static const char digits[] = "0123456789abcdef";
    out[0] = '\\';
    if (character >= '\a' && character <= '\r') {
        out[1] = letters[character - '\a'];
        return 2;
    }
    out[1] = 'x';
    out[2] = digits[(character >> 4) & 0xf];
    out[3] = digits[character & 0xf];
    return maxEscape;
}

} // namespace

Line::~Line()
{
    if (data_ != inline_) {
        std::free(data_);
    }
}

bool Line::reserve(size_t length)
{
    if (length + tailSize <= capacity_) {
        return true;
    }
    const size_t wanted = length + tailSize;
    char *bigger = static_cast<char *>(std::malloc(wanted));
    if (bigger == nullptr) {
        return false;
    }
    std::memcpy(bigger, data_, length_ + 1);
    if (data_ != inline_) {
        std::free(data_);
    }
    data_ = bigger;
    capacity_ = wanted;
    return true;
}

void Line::append(const char *text, size_t length)
{
    if (!reserve(length_ + length)) {
        length = capacity_ - tailSize - length_;
    }
    std::memcpy(data_ + length_, text, length);
    length_ += length;
    data_[length_] = '\0';
}

void Line::append(const char *text)
{
    append(text, std::strlen(text));
}

void Line::appendFormatted(const char *format, va_list arguments)
{
    if (format == nullptr) {
        append("(no message)");
        return;
    }
    va_list again;
    va_copy(again, arguments);
    const int needed = std::vsnprintf(data_ + length_, capacity_ - length_, format, arguments);
    if (needed < 0) {
        data_[length_] = '\0';
        append("(message that cannot be printed)");
    } else if (length_ + static_cast<size_t>(needed) + tailSize <= capacity_) {
        length_ += static_cast<size_t>(needed);
    } else if (reserve(length_ + static_cast<size_t>(needed))) {
        std::vsnprintf(data_ + length_, capacity_ - length_, format, again);
        length_ += static_cast<size_t>(needed);
    } else {
        length_ = capacity_ - tailSize;
        data_[length_] = '\0';
    }
    va_end(again);
    if (length_ > 0 && data_[length_ - 1] == '\n') {
        data_[--length_] = '\0';
    }
}

void Line::escapeControls()
{
    size_t controls = 0;
    for (size_t i = 0; i < length_; ++i) {
        controls += isControl(data_[i]) ? 1 : 0;
    }
    if (controls == 0) {
        return;
    }
    const bool room = reserve(length_ + controls * (maxEscape - 1));
    if (!room) {
        for (size_t i = 0; i < length_; ++i) {
            data_[i] = isControl(data_[i]) ? ' ' : data_[i];
        }
        return;
    }
    // Backwards from the end of the room, so that nothing unread is overwritten; then the text is
    // moved to the front.
    const size_t end = length_ + controls * (maxEscape - 1);
    size_t to = end;
    for (size_t from = length_; from-- > 0;) {
        char text[maxEscape] = {data_[from]};
        const size_t width = isControl(data_[from]) ? escape(data_[from], text) : 1;
        to -= width;
        std::memcpy(data_ + to, text, width);
    }
    length_ = end - to;
    std::memmove(data_, data_ + to, length_);
    data_[length_] = '\0';
}

void Line::writeTo(int fd)
{
    static std::mutex mutex;
    const std::lock_guard<std::mutex> guard(mutex);
    data_[length_] = '\n';
    const char *next = data_;
    size_t left = length_ + 1;
    while (left > 0) {
        const ssize_t written = write(fd, next, left);
        if (written < 0 && errno != EINTR) {
            break; // there is nobody to report it to
        }
        if (written > 0) {
            next += written;
            left -= static_cast<size_t>(written);
        }
    }
    data_[length_] = '\0';
}

} // namespace qddscore
