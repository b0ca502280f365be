/* Which annotations of a tree a type code carries. What says nothing about the data (@topic, @unit)
 * and what asks for that which is so anyway is fine; everything else is rejected, not dropped. */
#include <stdbool.h>
#include <string.h>

#include "idl/processor.h"
#include "idl_tree.h"

static bool isOneOf(const char *name, const char *const *names)
{
    for (; *names != NULL; ++names) {
        if (strcmp(name, *names) == 0) {
            return true;
        }
    }
    return false;
}

static bool hasPlainCdr(allowable_data_representations_t allowed)
{
    return (allowed & IDL_DATAREPRESENTATION_FLAG_XCDR1) != 0;
}

static bool isMemberCarried(const idl_member_t *member, const char *name, uint32_t position)
{
    static const char *const harmless[] = {"key", "unit", NULL};
    if (strcmp(name, "optional") == 0) {
        return !member->optional.value;
    }
    if (strcmp(name, "external") == 0) {
        return !member->external.value;
    }
    if (strcmp(name, "must_understand") == 0) {
        return !member->must_understand.value;
    }
    if (strcmp(name, "try_construct") == 0) {
        return member->try_construct.value == IDL_DISCARD;
    }
    if (strcmp(name, "id") == 0) { /* the number it would have anyway */
        return member->declarators->id.value == position;
    }
    return isOneOf(name, harmless);
}

static bool isStructCarried(const idl_struct_t *type, const char *name)
{
    static const char *const harmless[] = {"final",  "appendable", "mutable", "extensibility",
                                           "nested", "topic",      NULL};
    if (strcmp(name, "autoid") == 0) {
        return type->autoid.value == IDL_SEQUENTIAL;
    }
    if (strcmp(name, "data_representation") == 0) {
        return hasPlainCdr(type->data_representation.value);
    }
    return isOneOf(name, harmless);
}

static bool isEnumCarried(const idl_enum_t *type, const char *name)
{
    static const char *const extensibilities[] = {"final", "appendable", "mutable", "extensibility",
                                                  NULL};
    if (strcmp(name, "bit_bound") == 0) {
        return type->bit_bound.value == 32;
    }
    return isOneOf(name, extensibilities) && type->extensibility.value == IDL_FINAL;
}

int qidl_is_carried(QIdlNode node, QIdlNode annotation, uint32_t position)
{
    const char *name = qidl_name(annotation);
    switch (qidl_kind(node)) {
    case QIDL_MEMBER:
        return isMemberCarried(node, name, position);
    case QIDL_STRUCT:
        return isStructCarried(node, name);
    case QIDL_ENUM:
        return isEnumCarried(node, name);
    case QIDL_ENUMERATOR: /* the default is the first one */
        return strcmp(name, "value") == 0 ||
               (strcmp(name, "default_literal") == 0 && idl_previous(node) == NULL);
    case QIDL_MODULE:
        return strcmp(name, "default_nested") == 0 ||
               (strcmp(name, "autoid") == 0 &&
                ((const idl_module_t *)node)->autoid.value == IDL_SEQUENTIAL) ||
               (strcmp(name, "data_representation") == 0 &&
                hasPlainCdr(((const idl_module_t *)node)->data_representation.value));
    default:
        return 0;
    }
}
