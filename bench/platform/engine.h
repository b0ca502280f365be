// Samples by the DDS engine's generated code, for the types of payloads.idl.
#ifndef BENCH_PLATFORM_ENGINE_H
#define BENCH_PLATFORM_ENGINE_H

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace bench {

/// One type in the engine's hands. What it costs is measured with the memory that the engine itself
/// takes for a sample under way.
class EngineType {
public:
    /// Of a sample's CDR bytes, which the engine reads to have one like it.
    EngineType(const std::string &name, const uint8_t *bytes, size_t size);
    ~EngineType();
    EngineType(const EngineType &) = delete;
    EngineType &operator=(const EngineType &) = delete;

    /// Sets what changes in the struct, makes CDR of it and gives it to `to`; its size.
    size_t write(int64_t number, std::vector<uint8_t> &to);
    /// Makes a struct of CDR and reads what changes; the sum.
    double read();

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace bench

#endif
