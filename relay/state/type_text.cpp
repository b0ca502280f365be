#include "state/type_text.h"

#include "qddsc/string.h"

namespace ferry {

std::string typeName(const DDS_TypeCode *type)
{
    const char *const name = type == nullptr ? nullptr : DDS_TypeCode_get_name(type);
    return name == nullptr ? "" : name;
}

std::string typeText(const DDS_TypeCode *type)
{
    char *const text = type == nullptr ? nullptr : DDS_TypeCode_to_idl(type);
    std::string idl = text == nullptr ? "" : text;
    DDS_String_free(text);
    return idl;
}

std::string typeDifference(const DDS_TypeCode *type, const std::string &name,
                           const std::string &idl)
{
    DDS_ErrorText text{"what is kept of the other type cannot be read"};
    DDS_TypeLibrary *const library = DDS_TypeLibrary_new();
    if (library != nullptr &&
        DDS_TypeLibrary_add_idl_text(library, idl.c_str(), "", nullptr) != 0) {
        const DDS_TypeCode *const kept = DDS_TypeLibrary_find(library, name.c_str());
        if (kept != nullptr && DDS_TypeCode_explain_difference(type, kept, &text) == 0) {
            text = {};
        }
    }
    DDS_TypeLibrary_delete(library);
    return text.text;
}

} // namespace ferry
