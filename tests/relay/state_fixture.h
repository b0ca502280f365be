// A store over a file of a folder of the test's own.
#ifndef TESTS_RELAY_STATE_FIXTURE_H
#define TESTS_RELAY_STATE_FIXTURE_H

#include <memory>

#include "folder_test.h"
#include "qddsc/dynamic_data.h"
#include "state/store.h"

namespace state_test {

using namespace ferry;
namespace fs = std::filesystem;

inline const DDS_TypeCode *typeOf(const char *member)
{
    const DDS_StructMember members[] = {{member, DDS_TypeCode_get_primitive(DDS_TK_LONG), 0},
                                        {"text", DDS_TypeCode_create_string(0, nullptr), 0}};
    return DDS_TypeCode_create_struct("Row", nullptr, DDS_EXTENSIBILITY_FINAL, members, 2, nullptr);
}

/// Samples whose member x counts up, with a text of `size` characters.
class Samples {
public:
    Samples(int first, int count, std::size_t size = 8) : infos(static_cast<std::size_t>(count))
    {
        const std::string text(size, 't');
        for (int i = 0; i < count; ++i) {
            auto *sample = DDS_DynamicData_new(typeOf("x"), nullptr);
            DDS_DynamicData_set_long(sample, "x", first + i);
            DDS_DynamicData_set_string(sample, "text", text.data(), text.size());
            samples_.push_back(sample);
        }
    }
    ~Samples()
    {
        for (void *sample : samples_) {
            DDS_DynamicData_delete(static_cast<DDS_DynamicData *>(sample));
        }
    }
    Samples(const Samples &) = delete;
    Samples &operator=(const Samples &) = delete;

    SampleList list()
    {
        return {samples_.data(), infos.data(), static_cast<std::int32_t>(samples_.size())};
    }

    /// Null until a test sets them.
    std::vector<DDS_SampleInfo *> infos;

private:
    std::vector<void *> samples_;
};

inline int valueOf(const StoredSlice::Sample &stored)
{
    auto *sample = DDS_DynamicData_new(typeOf("x"), nullptr);
    int value = -1;
    if (DDS_DynamicData_set_cdr(sample, stored.cdr, stored.length, nullptr) == DDS_RETCODE_OK) {
        DDS_DynamicData_get_long(sample, "x", &value);
    }
    DDS_DynamicData_delete(sample);
    return value;
}

inline std::vector<int> valuesOf(const StoredSlice &slice)
{
    std::vector<int> values;
    for (std::int32_t i = 0; i < slice.count(); ++i) {
        values.push_back(valueOf(slice.sample(i)));
    }
    return values;
}

inline std::int64_t numberOf(const DDS_SampleInfo &info)
{
    return std::int64_t{info.publication_sequence_number.high} << 32 |
           info.publication_sequence_number.low;
}

class StateTest : public FolderTest {
protected:
    StateTest()
    {
        settings.file = directory / "s.db";
        settings.maxBytes = 1 << 20;
        settings.maxSamples = 4;
        settings.route = "r";
        settings.output = "lab/out";
        settings.type = typeOf("x");
        settings.notify = [this](const std::string &text) { notices += text + "\n"; };
    }

    /// A fresh object over the same file, as a new process has it.
    Store &reopened()
    {
        store.reset();
        store = std::make_unique<Store>(settings);
        opened = store->open();
        return *store;
    }
    StateResult append(int first, int count, std::size_t size = 8)
    {
        return store->append(Samples(first, count, size).list());
    }
    /// The oldest samples; they stay.
    std::vector<int> look()
    {
        const StateResult result = store->oldest(slice);
        EXPECT_TRUE(result.ok()) << result.text;
        return valuesOf(slice);
    }
    /// All that is left, delivered.
    std::vector<int> drain()
    {
        std::vector<int> all;
        for (std::vector<int> some = look(); !some.empty(); some = look()) {
            all.insert(all.end(), some.begin(), some.end());
            store->advance();
        }
        return all;
    }
    /// Files beside the store whose names say why, without their logs.
    std::vector<std::string> setAside(const std::string &why)
    {
        std::vector<std::string> names;
        for (const auto &entry : fs::directory_iterator(directory)) {
            const std::string name = entry.path().filename().string();
            const bool isLog = name.find("-wal") != std::string::npos;
            if (name.rfind("s.db." + why + "-20", 0) == 0 && !isLog) {
                names.push_back(name);
            }
        }
        return names;
    }
    static std::vector<int> range(int first, int last)
    {
        std::vector<int> values;
        for (int i = first; i <= last; ++i) {
            values.push_back(i);
        }
        return values;
    }

    StoreSettings settings;
    std::unique_ptr<Store> store;
    StateResult opened;
    StoredSlice slice;
    std::string notices;
};

/// Every field of the information differs from zero and from its neighbours.
inline DDS_SampleInfo fullInfo(int seed)
{
    DDS_SampleInfo info{};
    auto *bytes = reinterpret_cast<std::uint8_t *>(&info);
    for (std::size_t i = 0; i < sizeof info; ++i) {
        bytes[i] = static_cast<std::uint8_t>(i + static_cast<std::size_t>(seed) * 7 + 1);
    }
    info.valid_data = seed & 1;
    return info;
}

} // namespace state_test

#endif
