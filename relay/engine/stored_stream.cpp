#include "engine/stored_stream.h"

#include <cstring>

#include "ferryjni/environment.h"

namespace ferry {
namespace {

/// A larger sample gives its memory back with the loan: a thousand of them, each at its largest,
/// would be more than anybody expects of a loan.
constexpr std::size_t largestKept = 16U << 10;

void fail(QEL_FerrionEnvironment *environment, const std::string &text)
{
    QEL_FerrionEnvironment_set_errorI(environment, "%s", text.c_str());
}

} // namespace

const QEL_FerrionAdapterOperations StoredStream::operations = StoredStream::table();

QEL_FerrionAdapterOperations StoredStream::table()
{
    QEL_FerrionAdapterOperations table{};
    table.read = read;
    table.return_loan = returnLoan;
    table.write = write;
    return table;
}

StoredStream::StoredStream(SampleBuffer &buffer, const DDS_TypeCode *type,
                           std::function<void()> onRoom)
    : buffer_(buffer), type_(type), onRoom_(std::move(onRoom))
{
    writer_.stream = this;
    reader_.stream = this;
}

StoredStream::~StoredStream()
{
    for (void *const sample : samples_) {
        DDS_DynamicData_delete(static_cast<DDS_DynamicData *>(sample));
    }
}

void StoredStream::start(const QEL_FerrionStreamReaderListener &listener)
{
    buffer_.rewind();
    {
        const std::lock_guard<std::mutex> lock(listenerMutex_);
        listener_ = listener;
    }
    if (buffer_.level().samples > 0) {
        signal();
    }
}

void StoredStream::stop()
{
    buffer_.rewind();
    const std::lock_guard<std::mutex> lock(listenerMutex_);
    listener_ = {};
}

/// Under the lock, so that none comes once stop() has returned; a listener only marks and wakes.
void StoredStream::signal()
{
    const std::lock_guard<std::mutex> lock(listenerMutex_);
    if (listener_.onDataAvailable != nullptr) {
        listener_.onDataAvailable(&reader_, listener_.listenerData);
    }
}

std::int32_t StoredStream::write(QEL_FerrionStreamWriter *writer, void *const *samples,
                                 DDS_SampleInfo *const *infos, std::int32_t count,
                                 QEL_FerrionEnvironment *environment)
{
    StoredStream &self = *static_cast<Writer *>(writer)->stream;
    const StateResult result = self.buffer_.append({samples, infos, count, self.numbered_});
    if (!result.ok()) {
        self.fullAt_.store(result.fault == Fault::full ? self.buffer_.level().bytes : 0);
        fail(environment, result.text);
        return 0;
    }
    self.signal();
    return count;
}

void StoredStream::read(QEL_FerrionStreamReader *reader, void ***samples, DDS_SampleInfo ***infos,
                        std::int32_t *count, QEL_FerrionEnvironment *environment)
{
    StoredStream &self = *static_cast<Reader *>(reader)->stream;
    *count = 0;
    const StateResult result = self.buffer_.oldest(self.slice_);
    self.lookForRoom();
    if (!result.ok() || !self.lend()) {
        fail(environment, result.ok() ? "no memory for the samples of a store" : result.text);
        return;
    }
    *samples = self.samples_.data();
    *infos = self.infos_.data();
    *count = self.slice_.count();
}

/// What was delivered before this read has left its room by now.
void StoredStream::lookForRoom()
{
    if (fullAt_.load() > buffer_.level().bytes) {
        fullAt_.store(0);
        if (onRoom_) {
            onRoom_();
        }
    }
}

bool StoredStream::lend()
{
    const auto count = static_cast<std::size_t>(slice_.count());
    if (samples_.size() < count) {
        samples_.resize(count);
        infos_.resize(count);
    }
    bool good = true;
    for (std::int32_t i = 0; i < slice_.count() && good; ++i) {
        good = lendOne(i);
    }
    return good;
}

/// The bytes are those that were appended: their hash was right. So they are not walked again.
bool StoredStream::lendOne(std::int32_t index)
{
    const auto at = static_cast<std::size_t>(index);
    if (samples_[at] == nullptr) {
        samples_[at] = DDS_DynamicData_new(type_, nullptr);
    }
    const StoredSlice::Sample stored = slice_.sample(index);
    auto *const sample = static_cast<DDS_DynamicData *>(samples_[at]);
    std::uint8_t *const cdr =
        sample == nullptr ? nullptr : DDS_DynamicData_loan_cdr(sample, stored.length);
    if (cdr == nullptr) {
        return false;
    }
    std::memcpy(cdr, stored.cdr, stored.length);
    infos_[at] = &slice_.info(index);
    return true;
}

void StoredStream::returnLoan(QEL_FerrionStreamReader *reader, void **, DDS_SampleInfo **,
                              std::int32_t count, QEL_FerrionEnvironment *)
{
    StoredStream &self = *static_cast<Reader *>(reader)->stream;
    if (count > 0) {
        self.buffer_.advance();
    }
    self.release();
}

void StoredStream::release()
{
    for (std::int32_t i = 0; i < slice_.count(); ++i) {
        void *&sample = samples_[static_cast<std::size_t>(i)];
        if (slice_.sample(i).length > largestKept) {
            DDS_DynamicData_delete(static_cast<DDS_DynamicData *>(sample));
            sample = nullptr;
        }
    }
    slice_.clear();
}

} // namespace ferry
