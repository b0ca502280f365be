/* The only file that knows the IDL parser's tree; see idl_tree.h. */
#include "idl_tree.h"

#include <pthread.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "idl/processor.h"

/* The parser keeps process-wide state that it makes on first use, and is not documented to be safe
 * for threads: one text at a time. */
static pthread_mutex_t parserMutex = PTHREAD_MUTEX_INITIALIZER;

/* Where complaints of the parse that runs on this thread go. */
static __thread struct QIdlProblem *collector;

struct QIdlTree {
    idl_pstate_t *state;
};

#define SOURCE "idl"

/* Where a complaint belongs. One about a value of the parser's own, such as @optional(XCDR2), has a
 * place in the text that the parser has built in; then how far the parser has come says more. */
static const idl_position_t *placeOf(const idl_pstate_t *state, const idl_location_t *location)
{
    const idl_file_t *file = location->first.file;
    const int isOurs = file != NULL && strcmp(file->name, SOURCE) == 0;
    return isOurs || state == NULL ? &location->first : &state->scanner.position;
}

/* The parser prints its complaints to standard error through the three functions below, and offers
 * no other way to get at them. It calls them through its symbol table, so definitions in a library
 * that stands in front of it in the search order, as every user of it does, take their place.
 * Where another user was loaded first they do not: then the complaint is on standard error, and the
 * problem says only that the text was rejected. Outside of a parse of ours they print the bare
 * text.
 */
__attribute__((visibility("default"), format(printf, 3, 0))) void
idl_verror(const idl_pstate_t *state, const idl_location_t *location, const char *format,
           va_list arguments)
{
    if (collector == NULL) {
        vfprintf(stderr, format, arguments);
        fputc('\n', stderr);
        return;
    }
    if (collector->text[0] != '\0') {
        return; /* what follows a first mistake is seldom another one */
    }
    if (location != NULL) {
        const idl_position_t *place = placeOf(state, location);
        collector->line = place->line;
        collector->column = place->column;
    }
    vsnprintf(collector->text, sizeof collector->text, format, arguments);
}

__attribute__((visibility("default"))) void
idl_error(const idl_pstate_t *state, const idl_location_t *location, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    idl_verror(state, location, format, arguments);
    va_end(arguments);
}

/* An annotation that the parser skips with a warning is a mistake here: nobody knows what its
 * author meant it to change. Other warnings are opinions. */
__attribute__((visibility("default"))) void idl_warning(const idl_pstate_t *state,
                                                        idl_warning_t warning,
                                                        const idl_location_t *location,
                                                        const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    if (collector == NULL || warning == IDL_WARN_UNSUPPORTED_ANNOTATIONS) {
        idl_verror(state, location, format, arguments);
    }
    va_end(arguments);
}

/* A text that starts with a line directive has a source in the parser's eyes; without one it
 * dereferences a null source when it meets an unknown annotation. */
static char *withLineDirective(const char *text)
{
    static const char directive[] = "#line 1 \"" SOURCE "\"\n";
    const size_t length = strlen(text);
    char *result = malloc(sizeof directive + length);
    if (result != NULL) {
        memcpy(result, directive, sizeof directive - 1);
        memcpy(result + sizeof directive - 1, text, length + 1);
    }
    return result;
}

static idl_pstate_t *parse(const char *text, struct QIdlProblem *problem)
{
    idl_pstate_t *state = NULL;
    const uint32_t flags = IDL_FLAG_EXTENDED_DATA_TYPES | IDL_FLAG_ANONYMOUS_TYPES |
                           IDL_FLAG_ANNOTATIONS | IDL_FLAG_CASE_SENSITIVE;
    if (idl_create_pstate(flags, NULL, &state) != IDL_RETCODE_OK) {
        snprintf(problem->text, sizeof problem->text, "memory is short");
        return NULL;
    }
    state->config.default_extensibility = IDL_FINAL;
    const idl_retcode_t code = idl_parse_string(state, text);
    if (code == IDL_RETCODE_OK && problem->text[0] == '\0') {
        return state;
    }
    if (problem->text[0] == '\0') {
        snprintf(problem->text, sizeof problem->text, "%s",
                 code == IDL_RETCODE_NO_MEMORY ? "memory is short" : "the text is not valid IDL");
    }
    idl_delete_pstate(state);
    return NULL;
}

struct QIdlTree *qidl_parse(const char *text, struct QIdlProblem *problem)
{
    memset(problem, 0, sizeof *problem);
    struct QIdlTree *tree = malloc(sizeof *tree);
    char *whole = withLineDirective(text);
    if (tree != NULL && whole != NULL) {
        pthread_mutex_lock(&parserMutex);
        collector = problem;
        tree->state = parse(whole, problem);
        collector = NULL;
        pthread_mutex_unlock(&parserMutex);
    } else {
        snprintf(problem->text, sizeof problem->text, "memory is short");
    }
    free(whole);
    if (tree != NULL && (whole == NULL || tree->state == NULL)) {
        free(tree);
        tree = NULL;
    }
    return tree;
}

void qidl_free(struct QIdlTree *tree)
{
    if (tree != NULL) {
        pthread_mutex_lock(&parserMutex);
        idl_delete_pstate(tree->state);
        pthread_mutex_unlock(&parserMutex);
        free(tree);
    }
}

QIdlNode qidl_root(const struct QIdlTree *tree)
{
    /* of a text without definitions the parser shows its own annotations */
    return tree->state->root != tree->state->builtin_root ? tree->state->root : NULL;
}

static enum QIdlKind primitiveKind(idl_type_t type)
{
    switch (type) {
    case IDL_BOOL:
        return 1;
    case IDL_CHAR:
        return 2;
    case IDL_OCTET:
    case IDL_UINT8:
        return 3;
    case IDL_INT8:
        return 4;
    case IDL_SHORT:
    case IDL_INT16:
        return 5;
    case IDL_USHORT:
    case IDL_UINT16:
        return 6;
    case IDL_LONG:
    case IDL_INT32:
        return 7;
    case IDL_ULONG:
    case IDL_UINT32:
        return 8;
    case IDL_LLONG:
    case IDL_INT64:
        return 9;
    case IDL_ULLONG:
    case IDL_UINT64:
        return 10;
    case IDL_FLOAT:
        return 11;
    case IDL_DOUBLE:
        return 12;
    default:
        return QIDL_UNSUPPORTED;
    }
}

enum QIdlKind qidl_kind(QIdlNode node)
{
    static const struct {
        idl_mask_t mask;
        enum QIdlKind kind;
    } kinds[] = {{IDL_MODULE, QIDL_MODULE},         {IDL_CONST, QIDL_CONST},
                 {IDL_MEMBER, QIDL_MEMBER},         {IDL_ENUMERATOR, QIDL_ENUMERATOR},
                 {IDL_DECLARATOR, QIDL_DECLARATOR}, {IDL_TYPEDEF, QIDL_TYPEDEF},
                 {IDL_STRUCT, QIDL_STRUCT},         {IDL_ENUM, QIDL_ENUM},
                 {IDL_SEQUENCE, QIDL_SEQUENCE},     {IDL_STRING, QIDL_STRING}};
    const idl_mask_t mask = idl_mask(node);
    if ((mask & IDL_FORWARD) != 0) {
        return QIDL_FORWARD;
    }
    for (size_t i = 0; i < sizeof kinds / sizeof kinds[0]; ++i) {
        if ((mask & kinds[i].mask) != 0) {
            return kinds[i].kind;
        }
    }
    return (mask & IDL_BASE_TYPE) != 0 ? primitiveKind(idl_type(node)) : QIDL_UNSUPPORTED;
}

const char *qidl_construct(QIdlNode node)
{
    const char *construct = NULL;
    switch (idl_type(node)) {
    case IDL_LDOUBLE:
        return "long double";
    case IDL_WCHAR:
        return "wchar";
    default:
        construct = idl_construct(node);
        return construct != NULL ? construct : "construct";
    }
}

const char *qidl_name(QIdlNode node)
{
    if ((idl_mask(node) & IDL_ANNOTATION_APPL) != 0) {
        return ((const idl_annotation_appl_t *)node)->annotation->name->identifier;
    }
    return idl_identifier(node);
}

void qidl_location(QIdlNode node, uint32_t *line, uint32_t *column)
{
    const idl_location_t *location = idl_location(node);
    *line = location->first.line;
    *column = location->first.column;
}

QIdlNode qidl_next(QIdlNode node)
{
    return idl_next(node);
}

QIdlNode qidl_first(QIdlNode node)
{
    switch (qidl_kind(node)) {
    case QIDL_MODULE:
        return ((const idl_module_t *)node)->definitions;
    case QIDL_STRUCT:
        return ((const idl_struct_t *)node)->members;
    case QIDL_ENUM:
        return ((const idl_enum_t *)node)->enumerators;
    case QIDL_MEMBER:
        return ((const idl_member_t *)node)->declarators;
    case QIDL_TYPEDEF:
        return ((const idl_typedef_t *)node)->declarators;
    default:
        return NULL;
    }
}

QIdlNode qidl_type(QIdlNode node)
{
    switch (qidl_kind(node)) {
    case QIDL_MEMBER:
        return ((const idl_member_t *)node)->type_spec;
    case QIDL_TYPEDEF:
        return ((const idl_typedef_t *)node)->type_spec;
    case QIDL_SEQUENCE:
        return ((const idl_sequence_t *)node)->type_spec;
    case QIDL_FORWARD:
        return ((const idl_forward_t *)node)->type_spec;
    default:
        return NULL;
    }
}

uint32_t qidl_bound(QIdlNode node)
{
    return qidl_kind(node) == QIDL_STRING ? ((const idl_string_t *)node)->maximum
                                          : ((const idl_sequence_t *)node)->maximum;
}

int qidl_dimension(QIdlNode declarator, uint32_t index, uint32_t *dimension)
{
    const idl_literal_t *literal = ((const idl_declarator_t *)declarator)->const_expr;
    for (; literal != NULL && index > 0; --index) {
        literal = idl_next(literal);
    }
    *dimension = literal != NULL ? literal->value.uint32 : 0;
    return literal != NULL;
}

QIdlNode qidl_base(QIdlNode structure)
{
    const idl_inherit_spec_t *inherit = ((const idl_struct_t *)structure)->inherit_spec;
    return inherit != NULL ? inherit->base : NULL;
}

int qidl_extensibility(QIdlNode structure)
{
    return (int)((const idl_struct_t *)structure)->extensibility.value;
}

int qidl_is_nested(QIdlNode structure)
{
    return ((const idl_struct_t *)structure)->nested.value ? 1 : 0;
}

int qidl_is_key(QIdlNode member)
{
    return ((const idl_member_t *)member)->key.value ? 1 : 0;
}

int64_t qidl_value(QIdlNode enumerator)
{
    return ((const idl_enumerator_t *)enumerator)->value.value;
}

QIdlNode qidl_first_annotation(QIdlNode node)
{
    return ((const idl_node_t *)node)->annotations;
}

__attribute__((format(printf, 4, 5))) static const char *number(char *buffer, size_t size,
                                                                char *form, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(buffer, size, format, arguments);
    va_end(arguments);
    *form = 'n';
    return buffer;
}

const char *qidl_constant(QIdlNode constant, char *buffer, size_t size, char *form)
{
    const idl_literal_t *literal = ((const idl_const_t *)constant)->const_expr;
    *form = 'w';
    if ((idl_mask(literal) & IDL_ENUMERATOR) != 0) {
        return idl_identifier(literal);
    }
    switch (idl_type(literal)) {
    case IDL_BOOL:
        return literal->value.bln ? "TRUE" : "FALSE";
    case IDL_CHAR:
        *form = 'c';
        snprintf(buffer, size, "%c", literal->value.chr);
        return buffer;
    case IDL_STRING:
        *form = 't';
        return literal->value.str;
    case IDL_OCTET:
    case IDL_UINT8:
        return number(buffer, size, form, "%u", literal->value.uint8);
    case IDL_INT8:
        return number(buffer, size, form, "%d", literal->value.int8);
    case IDL_SHORT:
    case IDL_INT16:
        return number(buffer, size, form, "%d", literal->value.int16);
    case IDL_USHORT:
    case IDL_UINT16:
        return number(buffer, size, form, "%u", literal->value.uint16);
    case IDL_LONG:
    case IDL_INT32:
        return number(buffer, size, form, "%ld", (long)literal->value.int32);
    case IDL_ULONG:
    case IDL_UINT32:
        return number(buffer, size, form, "%lu", (unsigned long)literal->value.uint32);
    case IDL_LLONG:
    case IDL_INT64:
        return number(buffer, size, form, "%lld", (long long)literal->value.int64);
    case IDL_ULLONG:
    case IDL_UINT64:
        return number(buffer, size, form, "%llu", (unsigned long long)literal->value.uint64);
    case IDL_FLOAT:
        return number(buffer, size, form, "%.9g", literal->value.flt);
    case IDL_DOUBLE:
        return number(buffer, size, form, "%.17g", literal->value.dbl);
    default:
        *form = '\0';
        return "";
    }
}
