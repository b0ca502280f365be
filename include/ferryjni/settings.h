/* Settings: what an adapter's properties may be called and hold, declared once as plain data.
 *
 * A native plug-in may export a function that returns its table, named like its entry point with
 * "_settings" behind it: FerryAdapter_dds_create goes with FerryAdapter_dds_create_settings. The
 * host checks a configuration against the table before anything connects, and prints it for
 * `ferry check --settings`. A plug-in without the function has its properties passed on unchecked.
 */
#ifndef FERRYJNI_SETTINGS_H
#define FERRYJNI_SETTINGS_H

#include <stdint.h>

#include "ferryjni/export.h"

FERRYJNI_BEGIN

/** What a value is. Blanks around numbers, sizes and durations count nothing. */
typedef enum FERRY_SettingKind {
    FERRY_SETTING_TEXT = 0,
    /** A text that nobody shows. */
    FERRY_SETTING_SECRET = 1,
    FERRY_SETTING_PATH = 2,
    /** "true" or "false". */
    FERRY_SETTING_FLAG = 3,
    /** One of `words`. */
    FERRY_SETTING_CHOICE = 4,
    /** A whole number in decimal digits. */
    FERRY_SETTING_WHOLE = 5,
    /** A number of bytes: digits, and KiB, MiB or GiB directly behind them where wanted. */
    FERRY_SETTING_BYTES = 6,
    /** Digits, a point and digits where wanted, and us, ms, s, m or h: "1.5s". */
    FERRY_SETTING_DURATION = 7,
    /** All properties whose names begin with this name, which ends with a dot. */
    FERRY_SETTING_GROUP = 8,
    /** Of a host's own file only: a list. */
    FERRY_SETTING_LIST = 9,
    /** Of a host's own file only: a mapping with settings of its own. */
    FERRY_SETTING_SECTION = 10
} FERRY_SettingKind;

/** What is given the property. A setting may belong to several roles. The bits from 0x100 on are
 * for sections of a host's own file. */
#define FERRY_SETTING_OF_ADAPTER 0x01U
#define FERRY_SETTING_OF_CONNECTION 0x02U
#define FERRY_SETTING_OF_SESSION 0x04U
#define FERRY_SETTING_OF_READER 0x08U
#define FERRY_SETTING_OF_WRITER 0x10U
/** How a connection finds what it announces. The value comes with the connection's properties. */
#define FERRY_SETTING_OF_DISCOVERY 0x20U

/** The property must be there. */
#define FERRY_SETTING_REQUIRED 0x1U
/** An update may change it while what it belongs to is in use. */
#define FERRY_SETTING_CHANGEABLE 0x2U

/** One declaration. Texts are UTF-8 and live as long as the plug-in is loaded. */
typedef struct FERRY_Setting {
    /** The property's name; never null. */
    const char *name;
    /** FERRY_SETTING_OF_... bits. */
    uint32_t roles;
    /** A FERRY_SettingKind. */
    uint32_t kind;
    /** Separated by blanks: of a choice what it may be, of a number, a size or a duration words
     * that may stand in its place, such as "all". Null for none. */
    const char *words;
    /** Of numbers, sizes (bytes) and durations (nanoseconds) the smallest and the largest. */
    int64_t low;
    int64_t high;
    /** What a number counts: "samples". Null where kind or name say it. */
    const char *unit;
    /** The value of a property that is not there, as one would write it. Null for none. */
    const char *fallback;
    /** FERRY_SETTING_REQUIRED, FERRY_SETTING_CHANGEABLE. */
    uint32_t flags;
    /** One line that says what it is for. */
    const char *help;
    /** What the value may be, in the words of a message: "a table's name". Null where kind, words
     * and limits say it. */
    const char *expected;
} FERRY_Setting;

/** The version of this interface, for `version`. */
#define FERRY_SETTINGS_VERSION 1U

/** All settings of a plug-in, in the order in which people should read about them. */
typedef struct FERRY_SettingTable {
    /** FERRY_SETTINGS_VERSION. A host passes over a table of another version. */
    uint32_t version;
    uint32_t count;
    const FERRY_Setting *settings;
} FERRY_SettingTable;

/** The function that a plug-in may export. Callable on any thread, before the entry point and
 * without it. The table stays as it is while the plug-in is loaded; null stands for none. */
typedef const FERRY_SettingTable *(*FERRY_SettingsFn)(void);

FERRYJNI_END

#endif
