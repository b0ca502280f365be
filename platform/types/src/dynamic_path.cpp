// Following a path ("tags[0].name") to the bytes of a value.
#include "sample.h"

namespace qddsc {

namespace {

/// Start of a member of the root behind its first one of variable size: found once, then known
/// until something in front of it changes its size.
bool findIndexed(const DDS_DynamicData &sample, uint32_t member, uint64_t &position)
{
    const SampleType &root = *sample.root;
    const uint32_t known = static_cast<uint32_t>(root.layout.offsets.size());
    const uint32_t wanted = member - known;
    while (sample.indexed <= wanted) {
        uint64_t start = sample.indexed == 0 ? root.layout.offsets[known - 1][0]
                                             : sample.index[sample.indexed - 1];
        const SampleType &type = *root.members[known - 1 + sample.indexed].type;
        if (!skipValue(sample.view(), type, start)) {
            return false;
        }
        sample.index[sample.indexed++] = static_cast<uint32_t>(start);
    }
    position = sample.index[wanted];
    return true;
}

bool findMemberStart(const DDS_DynamicData &sample, const SampleType &type, bool isRoot,
                     uint32_t member, uint64_t &position)
{
    const qddscdr::Table<qddscdr::SizeByResidue> &offsets = type.layout.offsets;
    if (member < offsets.size()) {
        position += offsets[member][position % qddscdr::residueCount];
        return true;
    }
    if (isRoot) {
        return findIndexed(sample, member, position);
    }
    size_t index = offsets.size() - 1;
    position += offsets[index][position % qddscdr::residueCount];
    for (; index < member; ++index) {
        if (!skipValue(sample.view(), *type.members[index].type, position)) {
            return false;
        }
    }
    return true;
}

bool findElementStart(const DDS_DynamicData &sample, const SampleType &container, uint32_t depth,
                      uint32_t element, uint64_t &position)
{
    const SampleType &type = *container.element;
    if (type.layout.fixed) {
        position = skipDefaults(type, position, element);
        return true;
    }
    Cursor &cursor = sample.cursors[depth % cursorCount];
    if (cursor.container != &container || cursor.content != position || cursor.index > element) {
        cursor = {&container, position, position, 0};
    }
    if (!skipElements(sample.view(), type, cursor.position, element - cursor.index)) {
        cursor.container = nullptr;
        return false;
    }
    cursor.index = element;
    position = cursor.position;
    return true;
}

/// Reads "[123]" and moves behind it. An index too large for any sample becomes UINT32_MAX.
bool readIndex(const char *&path, uint32_t &index)
{
    const char *digit = path + 1;
    uint64_t value = 0;
    for (; *digit >= '0' && *digit <= '9'; ++digit) {
        value = value < UINT32_MAX ? value * 10 + static_cast<uint64_t>(*digit - '0') : value;
    }
    if (digit == path + 1 || *digit != ']') {
        return false;
    }
    index = value < UINT32_MAX ? static_cast<uint32_t>(value) : UINT32_MAX;
    path = digit + 1;
    return true;
}

class Resolver {
public:
    Resolver(const DDS_DynamicData &sample, Location &location)
        : sample_(sample), location_(location)
    {
    }

    DDS_ReturnCode_t run(const char *path)
    {
        location_.type = sample_.root;
        location_.start = 0;
        location_.depth = 0;
        location_.dimension = 0;
        for (;;) {
            DDS_ReturnCode_t code = enterMember(path);
            while (code == DDS_RETCODE_OK && *path == '[') {
                code = enterElement(path);
            }
            if (code != DDS_RETCODE_OK || *path == '\0') {
                return code;
            }
            if (*path != '.') {
                return DDS_RETCODE_BAD_PARAMETER;
            }
            ++path;
        }
    }

private:
    void push(uint32_t child, uint32_t count)
    {
        location_.frames[location_.depth++] = {location_.type, child + 1, count};
        location_.type = &childType(*location_.type, child);
    }

    DDS_ReturnCode_t enterMember(const char *&path)
    {
        const SampleType &type = *location_.type;
        const size_t length = std::strcspn(path, ".[");
        if (type.kind != DDS_TK_STRUCT) {
            return DDS_RETCODE_BAD_PARAMETER;
        }
        const uint32_t member = findMember(type, {path, length});
        if (member == UINT32_MAX) {
            return DDS_RETCODE_BAD_PARAMETER;
        }
        path += length;
        if (!findMemberStart(sample_, type, location_.depth == 0, member, location_.start)) {
            return DDS_RETCODE_ERROR;
        }
        push(member, static_cast<uint32_t>(type.members.size()));
        return DDS_RETCODE_OK;
    }

    DDS_ReturnCode_t enterElement(const char *&path)
    {
        if (location_.type->kind == DDS_TK_ARRAY) {
            return enterArray(path);
        }
        uint32_t index = 0;
        uint32_t count = 0;
        if (location_.type->kind != DDS_TK_SEQUENCE || !readIndex(path, index)) {
            return DDS_RETCODE_BAD_PARAMETER;
        }
        if (!readCount(sample_.view(), location_.start, count)) {
            return DDS_RETCODE_ERROR;
        }
        return enterChild(index, count);
    }

    /// Takes as many indices as the array has dimensions; fewer are a location inside the array.
    DDS_ReturnCode_t enterArray(const char *&path)
    {
        const qddscdr::Table<uint32_t> &dimensions = location_.type->dimensions;
        uint32_t flat = 0;
        uint32_t given = 0;
        for (; given < dimensions.size() && *path == '['; ++given) {
            uint32_t index = 0;
            if (!readIndex(path, index)) {
                return DDS_RETCODE_BAD_PARAMETER;
            }
            if (index >= dimensions[given]) {
                return DDS_RETCODE_NO_DATA;
            }
            flat = flat * dimensions[given] + index;
        }
        if (given < dimensions.size()) {
            location_.dimension = given;
            return *path == '\0' ? DDS_RETCODE_OK : DDS_RETCODE_BAD_PARAMETER;
        }
        return enterChild(flat, location_.type->elementCount);
    }

    DDS_ReturnCode_t enterChild(uint32_t index, uint32_t count)
    {
        if (index >= count) {
            return DDS_RETCODE_NO_DATA;
        }
        if (!findElementStart(sample_, *location_.type, location_.depth, index, location_.start)) {
            return DDS_RETCODE_ERROR;
        }
        push(index, count);
        return DDS_RETCODE_OK;
    }

    const DDS_DynamicData &sample_;
    Location &location_;
};

} // namespace

void forgetPositions(const DDS_DynamicData &sample)
{
    sample.indexed = 0;
    sample.cursors = {};
}

DDS_ReturnCode_t resolve(const DDS_DynamicData &sample, const char *path, Location &location)
{
    return path != nullptr ? Resolver(sample, location).run(path) : DDS_RETCODE_BAD_PARAMETER;
}

} // namespace qddsc
