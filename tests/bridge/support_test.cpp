// The host's support functions as a host or another plug-in uses them: no Java VM is started.
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "ferryjni/ferryjni.h"
#include "ferryjni/log.h"
#include "ferryjni/route.h"
#include "ferryjni/stream_info.h"
#include "ferryjni/types.h"

namespace {

std::string textOf(const QEL_FerrionEnvironment &environment)
{
    return std::to_string(environment.errorFlag) + " " + std::to_string(environment.errorCode) +
           " " + environment.message;
}

TEST(Environment, TheFirstErrorWithAFlagStaysUntilItIsOverwritten)
{
    QEL_FerrionEnvironment environment = {};
    QEL_FerrionEnvironment_set_error_w_paramsI(&environment, 0, 0, 9, "quiet");
    EXPECT_EQ(textOf(environment), "0 9 quiet");
    QEL_FerrionEnvironment_set_errorI(&environment, "%s %d", "first", 1);
    QEL_FerrionEnvironment_set_errorI(&environment, "second");
    QEL_FerrionEnvironment_set_error_w_paramsI(&environment, 0, 7, 8, "third");
    EXPECT_EQ(textOf(environment), "1 0 first 1");
    QEL_FerrionEnvironment_set_error_w_paramsI(&environment, 2, 7, 8, "%s", "fourth");
    EXPECT_EQ(textOf(environment), "7 8 fourth");
}

TEST(Environment, LongMessagesAreCutAndNothingBehindThemIsTouched)
{
    for (const size_t length : {1022U, 1023U, 1024U, 1025U, 2000U}) {
        QEL_FerrionEnvironment environment = {};
        environment.hostData = &environment;
        QEL_FerrionEnvironment_set_errorI(&environment, "%s", std::string(length, 'x').c_str());
        EXPECT_EQ(environment.message, std::string(std::min<size_t>(length, 1023), 'x'));
        EXPECT_EQ(environment.hostData, &environment);
    }
}

/// Folds its arguments into the result.
intptr_t routeFunction(void *handle, intptr_t a1, intptr_t a2, intptr_t a3, intptr_t a4,
                       intptr_t a5)
{
    return *static_cast<intptr_t *>(handle) + a1 * 10000 + a2 * 1000 + a3 * 100 + a4 * 10 + a5;
}

TEST(Route, EachAccessorCallsItsFunctionWithHandleAndArguments)
{
    intptr_t handle = 100000;
    const struct {
        intptr_t (*accessor)(const QEL_FerrionRoute *, intptr_t, intptr_t, intptr_t, intptr_t,
                             intptr_t);
        QEL_FerrionRouteFn QEL_FerrionRoute::*slot;
    } accessors[] = {
#define ACCESSOR(name) {QEL_FerrionRoute_##name##I, &QEL_FerrionRoute::name}
        ACCESSOR(get_input_count),
        ACCESSOR(get_input_at),
        ACCESSOR(lookup_input_by_name),
        ACCESSOR(is_input_active),
        ACCESSOR(get_input_type_information),
        ACCESSOR(get_input_connection),
        ACCESSOR(get_output_count),
        ACCESSOR(get_output_at),
        ACCESSOR(lookup_output_by_name),
        ACCESSOR(get_output_type_information),
        ACCESSOR(get_output_connection),
        ACCESSOR(set_session_period),
        ACCESSOR(get_session_period),
#undef ACCESSOR
    };
    for (const auto &[accessor, slot] : accessors) {
        QEL_FerrionRoute route = {};
        route.routeHandle = &handle;
        route.*slot = routeFunction;
        EXPECT_EQ(accessor(&route, 1, 2, 3, 4, 5), 112345);
    }
}

std::string textOf(const QEL_FerrionStreamInfo &info)
{
    const auto orNull = [](const char *text) {
        return std::string(text != nullptr ? text : "null");
    };
    return std::to_string(info.disposed) + " " + orNull(info.streamName) + " " +
           orNull(info.typeName) + " " + std::to_string(info.typeRepresentationKind) +
           (info.typeRepresentation != nullptr ? " type" : " null") +
           (info.partition.buffer != nullptr ? " partition" : "");
}

TEST(StreamInfo, OwnsCopiesOfItsNamesAndBorrowsItsType)
{
    char name[] = "A";
    int type = 0;
    QEL_FerrionStreamInfo *gone = QEL_FerrionStreamInfo_new_disposedI(name);
    QEL_FerrionStreamInfo *there = QEL_FerrionStreamInfo_new_discoveredI("B", "T", 3, &type);
    QEL_FerrionStreamInfo other = {};
    EXPECT_EQ(QEL_FerrionStreamInfo_initialize(&other, 7, "A", "U", 0, nullptr), 1);
    name[0] = '?';
    EXPECT_EQ(textOf(*gone), "1 A null 0 null");
    EXPECT_EQ(textOf(*there), "0 B T 3 type");
    EXPECT_EQ(textOf(other), "7 A U 0 null");
    EXPECT_LT(QEL_FerrionStreamInfo_compare(gone, there), 0);
    EXPECT_EQ(QEL_FerrionStreamInfo_compare(&other, gone), 0);
    EXPECT_GT(QEL_FerrionStreamInfo_compareByTypeName(&other, there), 0);
    EXPECT_EQ(QEL_FerrionStreamInfo_finalize(&other), 1);
    EXPECT_EQ(textOf(other), "7 null null 0 null");
    EXPECT_EQ(QEL_FerrionStreamInfo_initialize(nullptr, 0, "A", nullptr, 0, nullptr), 0);
    EXPECT_EQ(QEL_FerrionStreamInfo_initialize(&other, 0, nullptr, "T", 1, nullptr), 0);
    EXPECT_EQ(textOf(other), "7 null null 0 null");
    EXPECT_EQ(QEL_FerrionStreamInfo_new_disposedI(nullptr), nullptr);
    EXPECT_EQ(QEL_FerrionStreamInfo_finalize(nullptr), 0);
    const QEL_FerrionStringSeq *partition = QEL_FerrionStreamInfo_get_default_partition();
    EXPECT_TRUE(partition->length == 1 && partition->maximum == 1 && *partition->buffer[0] == '\0');
    QEL_FerrionStreamInfo_deleteI(there);
    QEL_FerrionStreamInfo_deleteI(gone);
    QEL_FerrionStreamInfo_deleteI(nullptr);
}

TEST(Version, ComparesFieldByFieldAsSignedNumbers)
{
    const struct {
        QEL_FerrionVersion a, b;
        int32_t order;
    } cases[] = {
        {{1, 2, 3}, {1, 3, 0}, -1},  {{2, 0, 0}, {1, 9, 9}, 1},
        {{1, 2, 3}, {1, 2, 3}, 0},   {{1, 2, 4}, {1, 2, 3}, 1},
        {{-1, 0, 0}, {0, 0, 0}, -1}, {{INT_MIN, 0, 0}, {INT_MAX, 0, 0}, -1},
    };
    for (const auto &[a, b, order] : cases) {
        EXPECT_EQ(QEL_FerrionVersion_compare(&a, &b), order);
        EXPECT_EQ(QEL_FerrionVersion_compare(&b, &a), -order);
    }
}

TEST(RouteEvent, IsBoundToARouteAndForgetsIt)
{
    QEL_FerrionRoute route = {};
    QEL_FerrionRouteEvent *event = QEL_FerrionRouteEvent_newI(&route);
    ASSERT_NE(event, nullptr);
    EXPECT_TRUE(event->route == &route && event->kind == 0);
    event->kind = 4;
    EXPECT_EQ(QEL_FerrionRouteEvent_initialize(event, nullptr), 0);
    EXPECT_EQ(event->kind, 4);
    QEL_FerrionRouteEvent_finalize(event);
    EXPECT_TRUE(event->route == nullptr && event->kind == 0);
    QEL_FerrionRouteEvent_deleteI(event);
    EXPECT_EQ(QEL_FerrionRouteEvent_initialize(nullptr, &route), 0);
    EXPECT_EQ(QEL_FerrionRouteEvent_newI(nullptr), nullptr);
    QEL_FerrionRouteEvent_finalize(nullptr);
    QEL_FerrionRouteEvent_deleteI(nullptr);
}

TEST(OutputStreamRequestStatus, IsCopiedWholeAndFinalizedToNil)
{
    const QEL_FerrionOutputStreamRequestStatus source = {{{1, 2}, 16, 1}, 5};
    QEL_FerrionOutputStreamRequestStatus copy = {{{9}, 9, 9}, 9};
    EXPECT_EQ(QEL_FerrionOutputStreamRequestStatus_copy(nullptr, &source), nullptr);
    EXPECT_EQ(QEL_FerrionOutputStreamRequestStatus_copy(&copy, nullptr), nullptr);
    QEL_FerrionOutputStreamRequestStatus_initialize(&copy);
    EXPECT_EQ(copy.status, 9);
    EXPECT_EQ(QEL_FerrionOutputStreamRequestStatus_copy(&copy, &source), &copy);
    EXPECT_EQ(memcmp(&copy, &source, sizeof(copy)), 0);
    QEL_FerrionOutputStreamRequestStatus_finalize(&copy);
    EXPECT_EQ(memcmp(&copy.instance, &QEL_FERRION_INSTANCE_HANDLE_NIL, 24), 0);
    EXPECT_EQ(copy.status, 0);
}

template<class T> std::string bytesOf(const T &constant)
{
    return {reinterpret_cast<const char *>(&constant), sizeof(T)};
}

TEST(Constants, HaveTheBytesThatHostsKnow)
{
    const auto zeros = [](size_t count) { return std::string(count, '\0'); };
    const auto ones = [](size_t count) { return std::string(count, '\xFF'); };
    EXPECT_EQ(bytesOf(QEL_FERRION_COUNT_UNLIMITED), ones(4));
    EXPECT_EQ(bytesOf(QEL_FERRION_GUID_AUTO), zeros(16));
    EXPECT_EQ(bytesOf(QEL_FERRION_GUID_UNKNOWN), zeros(16));
    EXPECT_EQ(bytesOf(QEL_FERRION_INSTANCE_HANDLE_NIL), zeros(16) + "\x10" + zeros(7));
    EXPECT_EQ(bytesOf(QEL_FERRION_SEQUENCE_NUMBER_UNKNOWN), ones(8));
    EXPECT_EQ(bytesOf(QEL_FERRION_SEQUENCE_NUMBER_AUTO), ones(8));
    EXPECT_EQ(bytesOf(QEL_FERRION_SAMPLE_IDENTITY_UNKNOWN), zeros(16) + ones(8));
    EXPECT_EQ(bytesOf(QEL_FERRION_SAMPLE_IDENTITY_AUTO), zeros(16) + ones(8));
    EXPECT_EQ(bytesOf(QEL_FERRION_TIME_INVALID), ones(4) + zeros(4));
    EXPECT_EQ(bytesOf(QEL_FERRION_WRITE_PARAMS_DEFAULT),
              "\x01" + zeros(19) + ones(8) + zeros(16) + ones(12) + zeros(20) + "\x10" + zeros(63));
}

TEST(LogMasks, StartWithErrorsAndFollowBitmapsAndVerbosity)
{
    uint32_t submodules = 0;
    uint32_t levels = 0;
    FERRYLog_getBitmaps(&submodules, &levels);
    EXPECT_EQ(submodules, 0x000FFFFFU);
    EXPECT_EQ(levels, 1U);
    FERRYLog_setBitmaps(0x12, 0x34);
    FERRYLog_getBitmaps(&submodules, &levels);
    EXPECT_EQ(submodules, 0x12U);
    EXPECT_EQ(levels, 0x34U);
    const struct {
        int32_t verbosity;
        uint32_t mask;
    } cases[] = {{-1, 0}, {0, 1},  {1, 3},           {2, 7},       {6, 0x7F},   {30, 0x7FFFFFFF},
                 {31, 0}, {32, 1}, {62, 0x7FFFFFFF}, {INT_MAX, 0}, {INT_MIN, 0}};
    for (const auto &[verbosity, mask] : cases) {
        FERRYLog_setVerbosity(0x56, verbosity);
        EXPECT_EQ(FERRYLog_g_instrumentationMask, mask) << verbosity;
        EXPECT_EQ(FERRYLog_g_submoduleMask, 0x56U);
    }
}

std::string logged;

// The only statement that a process without a VM can make the bridge log: level 0x4.
std::string logAStatus()
{
    logged.clear();
    FERRYJNIGlobal_detachCurrentThread(nullptr);
    return logged;
}

TEST(LogStatement, PrintsWhereBothMasksAllowAndAsksTheHookFirst)
{
    QELLog_setSink([](void *, const char *line, size_t) { logged += line; }, nullptr);
    const std::string line =
        "FERRYJNIGlobal_detachCurrentThread:native thread not attached to Java VM";
    EXPECT_EQ(logAStatus(), "");
    FERRYLog_setBitmaps(0x8000, 0x4);
    EXPECT_EQ(logAStatus(), line);
    FERRYLog_setBitmaps(0x7FFF, 0xFFFFFFFF);
    EXPECT_EQ(logAStatus(), "");
    QELLog_setLogLevel = [](uint32_t level) { logged += "hook " + std::to_string(level) + ";"; };
    EXPECT_EQ(logAStatus(), "");
    FERRYLog_setBitmaps(0xFFFFF, 0xFFFFFFFB);
    EXPECT_EQ(logAStatus(), "");
    FERRYLog_setBitmaps(0xFFFFF, 0x4);
    EXPECT_EQ(logAStatus(), "hook 4;" + line);
    QELLog_setLogLevel = [](uint32_t) {
        logged += "silence";
        FERRYLog_setBitmaps(0, 0);
    };
    EXPECT_EQ(logAStatus(), "silence");
    QELLog_setLogLevel = nullptr;
    QELLog_setSink(nullptr, nullptr);
}

TEST(LogCatalogue, HasEveryMessageWithItsCodeAndFormat)
{
    const struct {
        const QELLogMessage &message;
        int32_t code;
        const char *format;
    } rows[] = {
#define MESSAGE(name, code, format) {name, code, format},
#include "catalogue.inc"
#undef MESSAGE
    };
    EXPECT_EQ(std::size(rows), 32U);
    for (const auto &row : rows) {
        EXPECT_EQ(row.message.code, row.code);
        EXPECT_STREQ(row.message.format, row.format);
    }
}

} // namespace
