// Walks the parser's tree and makes a type code of every definition. Errors name source, line and
// column; the first one ends the walk.
#include "idl_reader.h"

#include <algorithm>
#include <limits>
#include <memory>
#include <string>
#include <unordered_map>

#include <fmt/format.h>

#include "idl_defaults.h"
#include "idl_key_parts.h"
#include "idl_source.h"
#include "idl_tree.h"
#include "qddscdr/error_text.h"

namespace qddsc {

namespace {

struct TreeDeleter {
    void operator()(QIdlTree *tree) const
    {
        qidl_free(tree);
    }
};

class Reader {
public:
    Reader(IdlSource &source, const std::vector<IdlKeyList> &keyLists,
           std::vector<NamedType> &types, DDS_ErrorText *error)
        : source_(source), keyLists_(keyLists), types_(types), error_(error), defaults_(source)
    {
    }

    /// Reads a list of definitions inside the modules of `scope` ("a::b::").
    bool readDefinitions(QIdlNode node, const std::string &scope)
    {
        for (; node != nullptr; node = qidl_next(node)) {
            if (!checkAnnotations(node, 0) || !readDefinition(node, scope)) {
                return false;
            }
        }
        return true;
    }

    /// Finds out which struct each list of keys is about: of those with the name the one in front
    /// of the pragma, or else the first.
    bool assignKeyLists(QIdlNode root)
    {
        std::vector<std::pair<uint32_t, std::string>> structs;
        if (!keyLists_.empty()) {
            listStructs(root, "", structs);
        }
        for (const IdlKeyList &list : keyLists_) {
            const std::string *found = nullptr;
            for (const auto &[line, name] : structs) {
                if (isNamed(name, list.type) && (found == nullptr || line <= list.line)) {
                    found = &name;
                }
            }
            if (found == nullptr) {
                return fail(list, fmt::format("there is no struct \"{}\"", list.type));
            }
            listsOf_[*found].push_back(&list);
        }
        return true;
    }

private:
    /// Members of a struct with the values that new samples have there.
    using Defaults = std::vector<std::pair<const char *, std::string>>;

    bool fail(const IdlKeyList &list, const std::string &what)
    {
        qddscdr::setError(error_, "%s:1: the keys of a pragma: %s", list.place.c_str(),
                          what.c_str());
        return false;
    }

    /// Whether a struct is meant, with or without its modules.
    static bool isNamed(const std::string &name, const std::string &meant)
    {
        const std::string whole = "::" + name;
        const std::string tail = meant.rfind("::", 0) == 0 ? meant : "::" + meant;
        return whole.size() >= tail.size() &&
               whole.compare(whole.size() - tail.size(), tail.size(), tail) == 0;
    }

    static void listStructs(QIdlNode node, const std::string &scope,
                            std::vector<std::pair<uint32_t, std::string>> &structs)
    {
        for (; node != nullptr; node = qidl_next(node)) {
            if (qidl_kind(node) == QIDL_MODULE) {
                listStructs(qidl_first(node), scope + qidl_name(node) + "::", structs);
            } else if (qidl_kind(node) == QIDL_STRUCT) {
                structs.emplace_back(lineOf(node), scope + qidl_name(node));
            }
        }
    }

    static uint32_t lineOf(QIdlNode node)
    {
        uint32_t line = 0;
        uint32_t column = 0;
        qidl_location(node, &line, &column);
        return line;
    }

    bool fail(QIdlNode node, const std::string &what)
    {
        uint32_t line = 0;
        uint32_t column = 0;
        qidl_location(node, &line, &column);
        source_.explain(error_, line, column, what.c_str());
        return false;
    }

    /// Remembers a named type, or says why it could not be made.
    bool add(QIdlNode node, const DDS_TypeCode *type, const DDS_ErrorText &why)
    {
        if (type == nullptr) {
            return fail(node, why.text);
        }
        byNode_[node] = type;
        types_.push_back({type, source_.place(lineOf(node))});
        return true;
    }

    bool checkAnnotations(QIdlNode node, uint32_t position)
    {
        for (QIdlNode annotation = qidl_first_annotation(node); annotation != nullptr;
             annotation = qidl_next(annotation)) {
            if (qidl_is_carried(node, annotation, position) == 0) {
                const std::string name = qidl_name(annotation);
                return fail(annotation, fmt::format("@{} as used here is not supported", name));
            }
        }
        return true;
    }

    bool readDefinition(QIdlNode node, const std::string &scope)
    {
        switch (qidl_kind(node)) {
        case QIDL_MODULE:
            return readDefinitions(qidl_first(node), scope + qidl_name(node) + "::");
        case QIDL_STRUCT:
            return readStruct(node, scope);
        case QIDL_ENUM:
            return readEnum(node, scope);
        case QIDL_TYPEDEF:
            return readTypedef(node, scope);
        case QIDL_CONST:
            defaults_.addConstant(node, scope);
            return true;
        case QIDL_FORWARD:
            return true;
        default:
            return failUnsupported(node);
        }
    }

    bool failUnsupported(QIdlNode node)
    {
        const char *const name = qidl_name(node);
        return fail(node, fmt::format("{}{}{} is not supported", qidl_construct(node),
                                      name == nullptr ? "" : " ", name == nullptr ? "" : name));
    }

    bool readTypedef(QIdlNode node, const std::string &scope)
    {
        for (QIdlNode declarator = qidl_first(node); declarator != nullptr;
             declarator = qidl_next(declarator)) {
            const DDS_TypeCode *target = declaredType(node, declarator);
            if (target == nullptr) {
                return false;
            }
            DDS_ErrorText why{};
            const std::string name = scope + qidl_name(declarator);
            const DDS_TypeCode *type = DDS_TypeCode_create_alias(name.c_str(), target, &why);
            if (!add(declarator, type, why)) {
                return false;
            }
        }
        return true;
    }

    bool readEnum(QIdlNode node, const std::string &scope)
    {
        std::vector<DDS_EnumMember> members;
        for (QIdlNode child = qidl_first(node); child != nullptr; child = qidl_next(child)) {
            if (!checkAnnotations(child, 0)) {
                return false;
            }
            const int64_t value = qidl_value(child);
            if (value > std::numeric_limits<int32_t>::max()) {
                return fail(child, "an enumerator's value is above 2147483647");
            }
            members.push_back({qidl_name(child), static_cast<int32_t>(value)});
        }
        DDS_ErrorText why{};
        const std::string name = scope + qidl_name(node);
        const DDS_TypeCode *type = DDS_TypeCode_create_enum(
            name.c_str(), members.data(), static_cast<uint32_t>(members.size()), &why);
        return add(node, type, why);
    }

    bool readStruct(QIdlNode node, const std::string &scope)
    {
        const int extensibility = qidl_extensibility(node);
        if (extensibility > DDS_EXTENSIBILITY_APPENDABLE) {
            return fail(node, "mutable types are not supported");
        }
        const DDS_TypeCode *base = nullptr;
        if (qidl_base(node) != nullptr && (base = typeOf(node, qidl_base(node))) == nullptr) {
            return false;
        }
        std::vector<DDS_StructMember> members;
        Defaults defaults;
        for (QIdlNode member = qidl_first(node); member != nullptr; member = qidl_next(member)) {
            if (!readMember(member, base, scope, members, defaults)) {
                return false;
            }
        }
        DDS_ErrorText why{};
        const std::string name = scope + qidl_name(node);
        if (!addKeys(name, members)) {
            return false;
        }
        const DDS_TypeCode *type = DDS_TypeCode_create_struct(
            name.c_str(), base, static_cast<DDS_ExtensibilityKind>(extensibility), members.data(),
            static_cast<uint32_t>(members.size()), &why);
        type = addDefaults(type, defaults, why);
        if (type != nullptr && qidl_is_nested(node) != 0) {
            type = DDS_TypeCode_create_nested(type, &why);
        }
        return add(node, type, why);
    }

    static const DDS_TypeCode *addDefaults(const DDS_TypeCode *type, const Defaults &defaults,
                                           DDS_ErrorText &why)
    {
        if (type == nullptr || defaults.empty()) {
            return type;
        }
        std::vector<DDS_MemberDefault> wanted;
        for (const auto &[member, value] : defaults) {
            wanted.push_back({member, value.c_str()});
        }
        return DDS_TypeCode_create_with_defaults(type, wanted.data(),
                                                 static_cast<uint32_t>(wanted.size()), &why);
    }

    bool addKeys(const std::string &name, std::vector<DDS_StructMember> &members)
    {
        IdlKeyParts parts;
        std::string problem;
        for (const IdlKeyList *list : listsOf_[name]) {
            for (const std::string &key : list->members) {
                if (!parts.add(key, name, members, problem)) {
                    return fail(*list, problem);
                }
            }
        }
        return parts.apply(members, problem) || fail(*listsOf_[name].front(), problem);
    }

    bool readMember(QIdlNode member, const DDS_TypeCode *base, const std::string &scope,
                    std::vector<DDS_StructMember> &members, Defaults &defaults)
    {
        const uint32_t inherited =
            base != nullptr ? DDS_TypeCode_get_member_count(DDS_TypeCode_resolve(base)) : 0;
        if (!checkAnnotations(member, inherited + static_cast<uint32_t>(members.size()))) {
            return false;
        }
        for (QIdlNode declarator = qidl_first(member); declarator != nullptr;
             declarator = qidl_next(declarator)) {
            const DDS_TypeCode *type = declaredType(member, declarator);
            if (type == nullptr) {
                return false;
            }
            members.push_back({qidl_name(declarator), type, qidl_is_key(member)});
            std::optional<std::string> value;
            if (!defaults_.find(member, type, scope, value, error_)) {
                return false;
            }
            if (value) {
                defaults.emplace_back(qidl_name(declarator), *value);
            }
        }
        return true;
    }

    /// Type of one declarator of a member or typedef: that of the whole, or an array of it.
    const DDS_TypeCode *declaredType(QIdlNode node, QIdlNode declarator)
    {
        const DDS_TypeCode *type = typeOf(node, qidl_type(node));
        std::vector<uint32_t> dimensions;
        uint32_t dimension = 0;
        while (qidl_dimension(declarator, static_cast<uint32_t>(dimensions.size()), &dimension)) {
            dimensions.push_back(dimension);
        }
        if (type == nullptr || dimensions.empty()) {
            return type;
        }
        DDS_ErrorText why{};
        type = DDS_TypeCode_create_array(type, dimensions.data(),
                                         static_cast<uint32_t>(dimensions.size()), &why);
        if (type == nullptr) {
            fail(declarator, why.text);
        }
        return type;
    }

    /// Type that `spec` stands for; errors are placed at `user`, which uses it.
    const DDS_TypeCode *typeOf(QIdlNode user, QIdlNode spec)
    {
        DDS_ErrorText why{};
        const DDS_TypeCode *type = nullptr;
        const QIdlKind kind = qidl_kind(spec);
        if (kind == QIDL_SEQUENCE) {
            const DDS_TypeCode *element = typeOf(user, qidl_type(spec));
            if (element == nullptr) {
                return nullptr;
            }
            type = DDS_TypeCode_create_sequence(element, qidl_bound(spec), &why);
        } else if (kind == QIDL_STRING) {
            type = DDS_TypeCode_create_string(qidl_bound(spec), &why);
        } else if (kind > QIDL_UNSUPPORTED && kind <= QIDL_PRIMITIVE_LAST) {
            type = DDS_TypeCode_get_primitive(static_cast<DDS_TCKind>(kind));
        } else {
            return namedType(user, spec, kind);
        }
        if (type == nullptr) {
            fail(user, why.text);
        }
        return type;
    }

    const DDS_TypeCode *namedType(QIdlNode user, QIdlNode spec, QIdlKind kind)
    {
        const auto found = byNode_.find(spec);
        if (found != byNode_.end()) {
            return found->second;
        }
        if (kind == QIDL_FORWARD && qidl_type(spec) != nullptr &&
            byNode_.count(qidl_type(spec)) != 0) {
            return byNode_[qidl_type(spec)];
        }
        if (kind == QIDL_UNSUPPORTED) {
            fail(user, fmt::format("{} is not supported", qidl_construct(spec)));
        } else {
            fail(user, fmt::format("{} is used before it is complete: recursive types are not "
                                   "supported",
                                   qidl_name(spec)));
        }
        return nullptr;
    }

    IdlSource &source_;
    const std::vector<IdlKeyList> &keyLists_;
    /// By the struct's name.
    std::unordered_map<std::string, std::vector<const IdlKeyList *>> listsOf_;
    std::vector<NamedType> &types_;
    DDS_ErrorText *error_;
    std::unordered_map<QIdlNode, const DDS_TypeCode *> byNode_;
    IdlDefaults defaults_;
};

} // namespace

bool readIdl(const IdlText &text, std::vector<NamedType> &types, std::vector<std::string> &notes,
             DDS_ErrorText *error)
{
    IdlSource source(text);
    if (!source.prepare(error)) {
        return false;
    }
    QIdlProblem problem{};
    const std::unique_ptr<QIdlTree, TreeDeleter> tree(
        qidl_parse(source.prepared().c_str(), &problem));
    if (tree == nullptr) {
        source.explain(error, problem);
        return false;
    }
    Reader reader(source, text.keyLists, types, error);
    const QIdlNode root = qidl_root(tree.get());
    if (!reader.assignKeyLists(root) || !reader.readDefinitions(root, "")) {
        return false;
    }
    notes = source.notes();
    return true;
}

} // namespace qddsc
