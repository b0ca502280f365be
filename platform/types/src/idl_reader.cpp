// Walks the parser's tree and makes a type code of every definition that can have one. Mistakes in
// the text end the walk; a definition that type codes do not carry is left out.
#include "idl_reader.h"

#include <algorithm>
#include <limits>
#include <memory>
#include <set>

#include <fmt/format.h>

#include "idl_defaults.h"
#include "idl_key_lists.h"
#include "idl_source.h"
#include "idl_tree.h"
#include "idl_types.h"

namespace qddsc {

namespace {

struct TreeDeleter {
    void operator()(QIdlTree *tree) const
    {
        qidl_free(tree);
    }
};

std::pair<uint32_t, uint32_t> spotOf(QIdlNode node)
{
    uint32_t line = 0;
    uint32_t column = 0;
    qidl_location(node, &line, &column);
    return {line, column};
}

uint64_t orderOf(QIdlNode node)
{
    const auto [line, column] = spotOf(node);
    return uint64_t{line} << 32 | column;
}

class Reader : private IdlTypes {
public:
    Reader(IdlSource &source, const IdlKeyLists &keys, IdlContent &content, DDS_ErrorText *error)
        : source_(source), keys_(keys), content_(content), error_(error), defaults_(source)
    {
    }

    /// False for a mistake, with the error filled.
    bool read(QIdlNode root)
    {
        findScopes(root, "");
        return readDefinitions(root);
    }

private:
    /// Members of a struct with the values that new samples have there.
    using Defaults = std::vector<std::pair<const char *, std::string>>;

    void findScopes(QIdlNode node, const std::string &scope)
    {
        for (; node != nullptr; node = qidl_next(node)) {
            scopes_[node] = scope;
            if (qidl_kind(node) == QIDL_MODULE) {
                findScopes(qidl_first(node), scope + qidl_name(node) + "::");
            }
        }
    }

    bool readDefinitions(QIdlNode node)
    {
        for (; node != nullptr; node = qidl_next(node)) {
            if (qidl_kind(node) != QIDL_MODULE) {
                readAhead(node);
            } else if (!checkAnnotations(node, 0)) {
                leaveOutAll(qidl_first(node));
            } else {
                readDefinitions(qidl_first(node));
            }
            if (isMistaken_) {
                return false;
            }
        }
        return true;
    }

    /// Reads a definition that was not read before.
    void readAhead(QIdlNode node) override
    {
        constexpr size_t deepest = 64;
        if (byNode_.count(node) != 0 || leftOut_.count(node) != 0 || isMistaken_ ||
            underWay_.count(node) != 0) {
            return;
        }
        underWay_.insert(node);
        const bool isRead = underWay_.size() > deepest
                                ? leave(node, "nested deeper than 64 levels")
                                : checkAnnotations(node, 0) && readDefinition(node, scopes_[node]);
        underWay_.erase(node);
        if (!isRead && !isMistaken_) {
            leaveOut(node);
        }
    }

    /// For the reason that was given last.
    void leaveOut(QIdlNode node)
    {
        if (qidl_kind(node) != QIDL_TYPEDEF) {
            leaveOutName(node, node);
            return;
        }
        for (QIdlNode each = qidl_first(node); each != nullptr; each = qidl_next(each)) {
            if (byNode_.count(each) == 0) {
                leaveOutName(node, each);
            }
        }
    }

    void leaveOutName(QIdlNode definition, QIdlNode named)
    {
        const std::string name = scopes_[definition] + qidl_name(named);
        const auto [line, column] = spotOf(reason_.node);
        leftOut_[named] = name;
        content_.leftOuts.push_back({name, source_.place(line, column), reason_.why, reason_.cause,
                                     qidl_kind(definition) == QIDL_STRUCT, orderOf(definition)});
    }

    void leaveOutAll(QIdlNode node)
    {
        for (; node != nullptr; node = qidl_next(node)) {
            switch (qidl_kind(node)) {
            case QIDL_MODULE:
                leaveOutAll(qidl_first(node));
                break;
            case QIDL_CONST:
            case QIDL_FORWARD:
                break;
            default:
                leaveOut(node);
            }
        }
    }

    bool checkAnnotations(QIdlNode node, uint32_t position)
    {
        for (QIdlNode annotation = qidl_first_annotation(node); annotation != nullptr;
             annotation = qidl_next(annotation)) {
            if (qidl_is_carried(node, annotation, position) == 0) {
                const std::string name = qidl_name(annotation);
                return leave(annotation, fmt::format("@{} as used here is not supported", name));
            }
        }
        return true;
    }

    bool readDefinition(QIdlNode node, const std::string &scope)
    {
        const char *const name = qidl_name(node);
        switch (qidl_kind(node)) {
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
            return leave(node,
                         fmt::format("{}{}{} is not supported", qidl_construct(node),
                                     name == nullptr ? "" : " ", name == nullptr ? "" : name));
        }
    }

    /// Remembers a named type, or why it could not be made.
    bool add(QIdlNode node, const DDS_TypeCode *type, const DDS_ErrorText &why)
    {
        if (type == nullptr) {
            return leave(node, why.text);
        }
        byNode_[node] = type;
        content_.types.push_back({type, source_.place(spotOf(node).first), orderOf(node)});
        return true;
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
                return leave(child, "an enumerator's value is above 2147483647");
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
            return leave(node, "mutable types are not supported");
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
        if (!keys_.apply(name, members, base, error_)) {
            isMistaken_ = true;
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
                isMistaken_ = true;
                return false;
            }
            if (value) {
                defaults.emplace_back(qidl_name(declarator), *value);
            }
        }
        return true;
    }

    IdlSource &source_;
    const IdlKeyLists &keys_;
    IdlContent &content_;
    DDS_ErrorText *error_;
    /// Whether the error is filled.
    bool isMistaken_ = false;
    /// "a::b::" for each definition.
    std::unordered_map<QIdlNode, std::string> scopes_;
    /// Definitions that are being read: one, and those that it needs first.
    std::set<QIdlNode> underWay_;
    IdlDefaults defaults_;
};

} // namespace

bool readIdl(const IdlText &text, IdlContent &content, DDS_ErrorText *error)
{
    IdlSource source(text);
    if (!source.prepare(error)) {
        return false;
    }
    std::unique_ptr<QIdlTree, TreeDeleter> tree;
    while (tree == nullptr) {
        QIdlProblem problem{};
        tree.reset(qidl_parse(source.prepared().c_str(), &problem));
        if (tree == nullptr && !source.leaveOut(problem)) {
            source.explain(error, problem);
            return false;
        }
    }
    const QIdlNode root = qidl_root(tree.get());
    content.leftOuts = source.leftOuts();
    IdlKeyLists keys(text.keyLists);
    if (!keys.assign(root, content.leftOuts, error) ||
        !Reader(source, keys, content, error).read(root)) {
        return false;
    }
    content.notes = source.notes();
    return true;
}

} // namespace qddsc
