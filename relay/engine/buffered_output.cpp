#include "engine/buffered_output.h"

#include "engine/log.h"
#include "state/dead_letter_buffer.h"
#include "state/memory_queue.h"
#include "state/store.h"

namespace ferry {
namespace {

std::filesystem::path fileOf(const OutputBuffer &settings, const StateDirectory &directory)
{
    return settings.settings.path.empty()
               ? directory.file({"store", settings.route, settings.output})
               : settings.settings.path;
}

const char *kindOf(const BufferSettings &settings)
{
    if (!settings.letters.empty()) {
        return "dead letters";
    }
    return settings.stored ? "store" : "queue";
}

std::unique_ptr<SampleBuffer> bufferFor(const OutputBuffer &settings,
                                        const StateDirectory &directory)
{
    if (!settings.settings.letters.empty()) {
        return std::make_unique<DeadLetterBuffer>(
            settings.settings.path,
            DeadLetterBuffer::Choice{settings.settings.letters, settings.maxSamples,
                                     settings.batchBytes});
    }
    if (!settings.settings.stored) {
        return std::make_unique<MemoryQueue>(MemoryQueue::Limits{
            settings.settings.maxBytes, settings.maxSamples, settings.batchBytes});
    }
    StoreSettings store;
    store.file = fileOf(settings, directory);
    store.maxBytes = settings.settings.maxBytes;
    store.whenFull = settings.settings.whenFull;
    store.maxSamples = settings.maxSamples;
    store.sliceBytes = settings.batchBytes;
    store.route = settings.route;
    store.output = settings.output;
    store.type = settings.type;
    store.notify = [name = settings.route](const std::string &text) {
        logAbout(FERRYLOG_BIT_ERROR, "FERRYRoute_store", name, "{}", text);
    };
    return std::make_unique<Store>(std::move(store));
}

} // namespace

BufferedOutput::BufferedOutput(const OutputBuffer &settings, StateDirectory &directory,
                               std::function<void()> onRoom)
    : settings_(settings), directory_(directory),
      label_(fmt::format("the {} of {}", kindOf(settings.settings), settings.output)),
      buffer_(bufferFor(settings, directory)),
      stream_(std::make_unique<StoredStream>(*buffer_, settings.type, std::move(onRoom)))
{
}

StateResult BufferedOutput::open()
{
    StateResult result;
    if (open_) {
        return result;
    }
    if (auto *const store = dynamic_cast<Store *>(buffer_.get())) {
        if (settings_.settings.path.empty()) {
            result = directory_.open();
        }
        if (result.ok()) {
            result = store->open();
        }
    }
    open_ = result.ok();
    rejected_ = result.fault == Fault::rejected;
    if (open_) {
        droppedBefore_.store(buffer_->level().dropped + buffer_->level().damaged);
    }
    return result;
}

StateResult BufferedOutput::probe()
{
    std::error_code error;
    if (!settings_.settings.stored ||
        !std::filesystem::exists(fileOf(settings_, directory_), error)) {
        return {};
    }
    StateResult result = open();
    return result.fault == Fault::busy ? StateResult() : result;
}

BufferLevel BufferedOutput::level() const
{
    BufferLevel level = buffer_->level();
    const std::uint64_t before = droppedBefore_.load();
    level.dropped = level.dropped + level.damaged - std::min(before, level.dropped + level.damaged);
    return level;
}

} // namespace ferry
