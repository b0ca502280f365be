/* What the IDL reader needs of the parser's tree. The parser's own headers are C that no C++
 * compiler takes, so everything that includes them is idl_tree.c, behind these plain functions.
 * Parsing locks a mutex; a tree belongs to the thread that made it. */
#ifndef QDDSC_SRC_IDL_TREE_H
#define QDDSC_SRC_IDL_TREE_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Node kinds; the primitive ones have the numbers of DDS_TCKind. */
enum QIdlKind {
    QIDL_UNSUPPORTED = 0,
    QIDL_PRIMITIVE_LAST = 12,
    QIDL_STRING = 13,
    QIDL_ENUM = 14,
    QIDL_STRUCT = 15,
    QIDL_TYPEDEF = 16,
    QIDL_SEQUENCE = 17,
    QIDL_DECLARATOR = 18,
    QIDL_MODULE,
    QIDL_MEMBER,
    QIDL_ENUMERATOR,
    QIDL_CONST,
    QIDL_FORWARD
};

/* The first complaint of the parser; line and column count from 1, 0 where it named none. */
struct QIdlProblem {
    uint32_t line;
    uint32_t column;
    char text[512];
};

struct QIdlTree;
typedef const void *QIdlNode;

/* Parses a text, whose last line has an end. Null on failure, with `problem` filled. */
struct QIdlTree *qidl_parse(const char *text, struct QIdlProblem *problem);
void qidl_free(struct QIdlTree *tree);
/* First definition of the text, or null. */
QIdlNode qidl_root(const struct QIdlTree *tree);

enum QIdlKind qidl_kind(QIdlNode node);
/* What the node is called in IDL: "union", "bitmask". Never null. */
const char *qidl_construct(QIdlNode node);
/* Its identifier, or null. */
const char *qidl_name(QIdlNode node);
void qidl_location(QIdlNode node, uint32_t *line, uint32_t *column);
QIdlNode qidl_next(QIdlNode node);
/* First definition of a module, member of a struct, enumerator, declarator of a member or typedef.
 */
QIdlNode qidl_first(QIdlNode node);

/* Type of a member or typedef; element of a sequence. What a forward declaration stands for. */
QIdlNode qidl_type(QIdlNode node);
/* Bound of a string or sequence, 0 for none. */
uint32_t qidl_bound(QIdlNode node);
/* Dimension `index` of a declarator. Returns 0 behind the last one. */
int qidl_dimension(QIdlNode declarator, uint32_t index, uint32_t *dimension);
/* Base of a struct, or null. */
QIdlNode qidl_base(QIdlNode structure);
/* 0 final, 1 appendable, 2 mutable. */
int qidl_extensibility(QIdlNode structure);
/* By @nested, or @default_nested without @topic. */
int qidl_is_nested(QIdlNode structure);
int qidl_is_key(QIdlNode member);
int64_t qidl_value(QIdlNode enumerator);
/* Value of a constant as text, in `buffer` or in the tree. `form` receives 't' for a text, 'c' for
 * a character, 'n' for a number and 'w' for TRUE, FALSE or an enumerator; 0 if there is none. */
const char *qidl_constant(QIdlNode constant, char *buffer, size_t size, char *form);

QIdlNode qidl_first_annotation(QIdlNode node);
/* Whether a type code says all that the annotation does. `position` is that of a member among all
 * members of its struct. */
int qidl_is_carried(QIdlNode node, QIdlNode annotation, uint32_t position);

#ifdef __cplusplus
}
#endif

#endif
