// IDL texts: rejected with a place, or made into types that can be written as IDL again and used.
#include "samples.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace {

// A folder with a file to include.
class Includes {
public:
    Includes()
    {
        char name[] = "/tmp/qdds-fuzz-XXXXXX";
        folder_ = std::filesystem::canonical(mkdtemp(name));
        std::ofstream(folder_ / "part.idl") << "#define PART part::Part\nmodule part {\n"
                                               "struct Part { @key long id; string name; };\n};\n";
    }
    Includes(const Includes &) = delete;
    Includes &operator=(const Includes &) = delete;
    ~Includes()
    {
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }

    void setPath(DDS_TypeLibrary *library) const
    {
        const char *const folder = folder_.c_str();
        DDS_TypeLibrary_set_include_path(library, &folder, 1);
    }

    // Macros of the input may spoil the file.
    bool isPlaceInside(const std::string &error) const
    {
        const std::string file = folder_ / "part.idl:";
        return error.rfind(file, 0) == 0 && isPlaceIn("\n\n\n\n", error.c_str() + file.size());
    }

private:
    std::filesystem::path folder_;
};

} // namespace

int LLVMFuzzerInitialize(int *, char ***)
{
    testing::GTEST_FLAG(break_on_failure) = true;
    return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string text = std::string(data, data + size).c_str(); // up to a NUL
    static const Includes includes;
    const Library library(DDS_TypeLibrary_new());
    includes.setPath(library.get());
    DDS_ErrorText error{};
    const bool good = DDS_TypeLibrary_add_idl_text(library.get(), text.c_str(), "x", &error) == 1;
    const uint32_t count = DDS_TypeLibrary_get_count(library.get());
    REQUIRE(good == (error.text[0] == '\0') && (good || count == 0));
    REQUIRE(good || includes.isPlaceInside(error.text) ||
            (std::string(error.text, 2) == "x:" && isPlaceIn(text, error.text + 2)));
    for (uint32_t i = 0; i < count; ++i) {
        checkType(DDS_TypeLibrary_get_at(library.get(), i));
    }
    return 0;
}
