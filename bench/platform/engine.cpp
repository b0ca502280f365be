#include "engine.h"

#include <cstring>
#include <dds/dds.h>
#include <dds/ddsi/ddsi_serdata.h>
#include <payloads.h>

namespace bench {

// Of host.h, whose own headers give other meanings to the engine's names.
[[noreturn]] void fail(const std::string &what);

namespace {

/// The bytes in front of a sample that say how it is encoded.
constexpr uint8_t header[] = {0, 1, 0, 0};

dds_entity_t must(dds_entity_t entity, const char *what)
{
    if (entity < 0) {
        fail(std::string(what) + ": " + dds_strretcode(entity));
    }
    return entity;
}

} // namespace

struct EngineType::State {
    const dds_topic_descriptor_t *descriptor;
    dds_entity_t participant;
    void *sample;
    std::vector<uint8_t> bytes;
    const ddsi_sertype *type = nullptr;
    ddsi_serdata *kept = nullptr; ///< holds the type

    ddsi_serdata *parse()
    {
        ddsrt_iovec_t part = {bytes.data(), bytes.size()};
        return ddsi_serdata_from_ser_iov(type, SDK_DATA, 1, &part, bytes.size());
    }
};

EngineType::EngineType(const std::string &name, const uint8_t *bytes, size_t size)
    : state_(std::make_unique<State>())
{
    state_->descriptor = name == "64" ? &P64_desc : (name == "1024" ? &P1024_desc : &Nested_desc);
    state_->bytes.assign(header, header + sizeof header);
    state_->bytes.insert(state_->bytes.end(), bytes, bytes + size);
    state_->bytes.resize((state_->bytes.size() + 3) / 4 * 4);
    state_->sample = dds_alloc(state_->descriptor->m_size);
    // The type as the engine has it is seen in a sample that has come.
    state_->participant =
        must(dds_create_participant(DDS_DOMAIN_DEFAULT, nullptr, nullptr), "domain");
    const dds_entity_t topic =
        must(dds_create_topic(state_->participant, state_->descriptor, "bench", nullptr, nullptr),
             "topic");
    const dds_entity_t reader =
        must(dds_create_reader(state_->participant, topic, nullptr, nullptr), "reader");
    const dds_entity_t writer =
        must(dds_create_writer(state_->participant, topic, nullptr, nullptr), "writer");
    must(dds_write(writer, state_->sample), "write");
    dds_sample_info_t info;
    if (dds_takecdr(reader, &state_->kept, 1, &info, DDS_ANY_STATE) != 1) {
        fail("the engine's sample did not come");
    }
    state_->type = state_->kept->type;
    ddsi_serdata *data = state_->parse();
    if (data == nullptr || !ddsi_serdata_to_sample(data, state_->sample, nullptr, nullptr)) {
        fail("the engine cannot read the sample");
    }
    ddsi_serdata_unref(data);
}

EngineType::~EngineType()
{
    dds_sample_free(state_->sample, state_->descriptor, DDS_FREE_ALL);
    ddsi_serdata_unref(state_->kept);
    dds_delete(state_->participant);
}

size_t EngineType::write(int64_t number, std::vector<uint8_t> &to)
{
    // All have the number in front.
    memcpy(state_->sample, &number, sizeof number);
    if (state_->descriptor == &Nested_desc) {
        auto *nested = static_cast<Nested *>(state_->sample);
        for (uint32_t i = 0; i < nested->readings._length; ++i) {
            nested->readings._buffer[i].value = static_cast<double>(number);
        }
    }
    ddsi_serdata *data = ddsi_serdata_from_sample(state_->type, SDK_DATA, state_->sample);
    const uint32_t size = ddsi_serdata_size(data) - static_cast<uint32_t>(sizeof header);
    to.resize(size);
    ddsi_serdata_to_ser(data, sizeof header, size, to.data());
    ddsi_serdata_unref(data);
    return size;
}

double EngineType::read()
{
    ddsi_serdata *data = state_->parse();
    ddsi_serdata_to_sample(data, state_->sample, nullptr, nullptr);
    ddsi_serdata_unref(data);
    int64_t number = 0;
    memcpy(&number, state_->sample, sizeof number);
    double sum = static_cast<double>(number);
    if (state_->descriptor == &Nested_desc) {
        const auto *nested = static_cast<const Nested *>(state_->sample);
        for (uint32_t i = 0; i < nested->readings._length; ++i) {
            sum += nested->readings._buffer[i].value;
        }
    }
    return sum;
}

} // namespace bench
