// What the host's slots see of a reader: stream readers and discovery readers are the same to it.
#ifndef FERRYADAPTER_DDS_READER_H
#define FERRYADAPTER_DDS_READER_H

#include "ferryjni/plugin.h"
#include "qddsc/sample_info.h"

namespace ferrydds {

/// The three results of a read.
struct Loan {
    void **samples = nullptr;
    DDS_SampleInfo **infos = nullptr;
    std::int32_t count = 0;
};

class Reader : public QEL_FerrionStreamReader {
public:
    Reader() = default;
    virtual ~Reader() = default;
    Reader(const Reader &) = delete;
    Reader &operator=(const Reader &) = delete;

    /// Lends what is there, without waiting. An error in the environment takes nothing from the
    /// loan.
    virtual Loan read(QEL_FerrionEnvironment *environment) = 0;
    virtual void returnLoan() = 0;
    virtual void update(const QEL_FerrionProperties *properties) = 0;
};

} // namespace ferrydds

#endif
