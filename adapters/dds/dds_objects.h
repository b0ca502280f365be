// Owners of the platform's objects.
#ifndef FERRYADAPTER_DDS_DDS_OBJECTS_H
#define FERRYADAPTER_DDS_DDS_OBJECTS_H

#include <memory>
#include <new>
#include <string>
#include <vector>

#include "qddsdomain/discovery.h"
#include "qddsdomain/participant.h"
#include "qddsdomain/reader.h"
#include "qddsdomain/writer.h"

namespace ferrydds {

struct Deleter {
    void operator()(DDS_DataReader *object) const
    {
        DDS_DataReader_delete(object);
    }
    void operator()(DDS_DataWriter *object) const
    {
        DDS_DataWriter_delete(object);
    }
    void operator()(DDS_Discovery *object) const
    {
        DDS_Discovery_delete(object);
    }
    void operator()(DDS_DynamicData *object) const
    {
        DDS_DynamicData_delete(object);
    }
};

template<class Object> using Owned = std::unique_ptr<Object, Deleter>;

/// Held by the connection and by all that lives in its domain: the last one to go leaves the
/// domain.
using Participant = std::shared_ptr<DDS_DomainParticipant>;

/// A string sequence as the platform wants it.
class Strings {
public:
    explicit Strings(const std::vector<std::string> &texts)
    {
        for (const std::string &text : texts) {
            if (DDS_StringSeq_append(&sequence_, text.c_str()) == 0) {
                DDS_StringSeq_finalize(&sequence_);
                throw std::bad_alloc();
            }
        }
    }
    ~Strings()
    {
        DDS_StringSeq_finalize(&sequence_);
    }
    Strings(const Strings &) = delete;
    Strings &operator=(const Strings &) = delete;

    const DDS_StringSeq *get() const
    {
        return &sequence_;
    }

private:
    DDS_StringSeq sequence_{};
};

} // namespace ferrydds

#endif
