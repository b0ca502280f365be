/* What both partners share: contents of sample number i, one JSON line a sample, and the course of
 * a run. Before inclusion the macros are defined that hide how generated code differs (TYPE, AT,
 * ELEMENT, LENGTH, TEXT, SET_TEXT, SET_CHARS, RESIZE). Options come as arguments name=value. */
#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

static int open_endpoint(void); /* 0: rejected, and said so */
static unsigned matched_readers(void);
static int write_sample(unsigned i);
static int finish_instance(unsigned i, int dispose);
static unsigned print_taken(void); /* lines printed */

static const char *option(const char *name, const char *otherwise)
{
    return getenv(name) ? getenv(name) : otherwise;
}

static int option_is(const char *name, const char *value)
{
    return strcmp(option(name, ""), value) == 0;
}

static unsigned option_number(const char *name, const char *otherwise)
{
    return (unsigned)strtoul(option(name, otherwise), NULL, 10);
}

/* Each type has one function: it fills members of sample i, or prints them. */
#define BEGIN(name)                                                                                \
    static void visit_##name(void *sample, unsigned i, int fill)                                   \
    {                                                                                              \
        TYPE(name) *v = (TYPE(name) *)sample;                                                      \
        const char *comma = "{";
#define END                                                                                        \
    if (!fill)                                                                                     \
        printf("}");                                                                               \
    }
#define LEAD(name) (printf("%s\"" #name "\": ", comma), comma = ", ")
#define VALUE(name, format, value)                                                                 \
    if (fill)                                                                                      \
        AT(v, name) = value;                                                                       \
    else                                                                                           \
        LEAD(name), printf(format, AT(v, name));
#define STRING(name, set, ...)                                                                     \
    if (fill) {                                                                                    \
        char text[64];                                                                             \
        snprintf(text, sizeof text, __VA_ARGS__);                                                  \
        set(AT(v, name), text);                                                                    \
    } else                                                                                         \
        LEAD(name), printf("\"%s\"", TEXT(AT(v, name)));
#define MEMBER(name, visit) (void)(fill || LEAD(name)), visit(&AT(v, name), i, fill);
#define SEQUENCE(name, size, visit)                                                                \
    if (fill)                                                                                      \
        RESIZE(v, name, size);                                                                     \
    else                                                                                           \
        LEAD(name), printf("[");                                                                   \
    for (unsigned k = 0; k < LENGTH(v, name); ++k) {                                               \
        printf("%s", fill || k == 0 ? "" : ", ");                                                  \
        visit(&ELEMENT(v, name, k), i + k, fill);                                                  \
    }                                                                                              \
    printf("%s", fill ? "" : "]");

BEGIN(Flat)
VALUE(id, "%" PRIu32, i)
VALUE(flag, "%d", i % 2 != 0)
VALUE(o, "%d", (uint8_t)(i * 7))
VALUE(c, "\"%c\"", (char)('A' + i % 26))
VALUE(s, "%d", (int16_t)(INT16_MIN + (int)i))
VALUE(us, "%d", (uint16_t)(UINT16_MAX - i))
VALUE(l, "%" PRId32, INT32_MIN + (int32_t)i)
VALUE(ll, "%" PRId64, INT64_MIN + (int64_t)i)
VALUE(ull, "%" PRIu64, UINT64_MAX - i)
VALUE(f, "%.9g", (float)i * 0.25f - 3.0f)
VALUE(d, "%.17g", i / 3.0)
END

    BEGIN(Point) VALUE(x, "%.17g", i / 8.0) VALUE(y, "%d", (int16_t) - (int)i) END

    BEGIN(Nested) static const char *const COLOURS[] = {"RED", "GREEN", "BLUE"};
VALUE(id, "%" PRIu32, i)
STRING(name, SET_TEXT, "%.*s%u", (int)(i % 5) * 2, "\u00e9\u00e9\u00e9\u00e9", i)
STRING(label, SET_CHARS, "L%u", i)
if (fill)
    AT(v, colour) = (TYPE(Colour))(i % 3);
else
    LEAD(colour), printf("\"%s\"", COLOURS[AT(v, colour)]);
MEMBER(origin, visit_Point)
SEQUENCE(path, i % 4, visit_Point)
for (unsigned k = 0; k < 6; ++k)
    if (fill)
        AT(v, grid)[k / 3][k % 3] = (uint8_t)(i + k);
    else
        printf(k == 0 ? ", \"grid\": [[%d" : k == 3 ? "], [%d" : ", %d", AT(v, grid)[k / 3][k % 3]);
printf("%s", fill ? "" : "]]");
END

BEGIN(Keyed)
VALUE(region, "%d", (uint8_t)(i % 2 + 1))
VALUE(value, "%" PRId32, (int32_t)i)
VALUE(id, "%" PRIu32, i % 4 * 1000000007u)
END

BEGIN(Wide)
VALUE(number, "%" PRId64, -1 - (int64_t)(i % 4))
STRING(name, SET_TEXT, "instance %u", i % 4)
VALUE(value, "%" PRId32, (int32_t)i)
END

BEGIN(Part)
VALUE(number, "%d", (int16_t)i)
STRING(name, SET_TEXT, "part %u", i)
END

BEGIN(Open)
VALUE(id, "%" PRIu32, i)
SEQUENCE(parts, i % 3, visit_Part)
VALUE(last, "%" PRId64, -(int64_t)i)
END

static void print_line(const char *state, void (*visit)(void *, unsigned, int), void *sample)
{
    printf("[\"%s\", ", state);
    visit(sample, 0, 0);
    printf("]\n");
}

/* Writes, reports that it has, and stays until it is ended. */
static int publish(void)
{
    const unsigned count = option_number("count", "1");
    while (matched_readers() < option_number("wait", "1"))
        usleep(2000);
    usleep(1000 * option_number("settle", "0"));
    for (unsigned i = 0; i < count; ++i)
        if (!write_sample(i))
            return 1;
    for (unsigned i = 0; i < 2 && *option("finish", ""); ++i)
        if (!finish_instance(i, option_is("finish", "dispose")))
            return 1;
    printf("written\n");
    fflush(stdout);
    pause();
    return 0;
}

/* Prints until `count` lines are out and 300 ms have brought no further one. */
static int subscribe(void)
{
    const unsigned count = option_number("count", "1");
    for (unsigned lines = 0, idle = 0; lines < count || idle < 150; usleep(2000)) {
        const unsigned more = print_taken();
        fflush(stdout);
        idle = more ? 0 : idle + 1;
        lines += more;
    }
    return 0;
}

int main(int argc, char **argv)
{
    for (int a = 1; a < argc; ++a)
        putenv(argv[a]);
    alarm(option_number("limit", "60"));
    return !open_endpoint() ? 3 : option_is("role", "pub") ? publish() : subscribe();
}
