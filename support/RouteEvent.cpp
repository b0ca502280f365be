// Small records of the plug-in interface (versions, route events, request statuses) and its
// constants. Events live on the C heap, because hosts free them with the C library too.
#include "ferryjni/types.h"

#include <cstddef>
#include <cstdlib>

namespace {

static_assert(offsetof(QEL_FerrionVersion, major) == 0);
static_assert(offsetof(QEL_FerrionVersion, minor) == 4);
static_assert(offsetof(QEL_FerrionVersion, release) == 8);
static_assert(sizeof(QEL_FerrionVersion) == 12);

static_assert(offsetof(QEL_FerrionInstanceHandle, keyHash) == 0);
static_assert(offsetof(QEL_FerrionInstanceHandle, keyHashLength) == 16);
static_assert(offsetof(QEL_FerrionInstanceHandle, isValid) == 20);
static_assert(sizeof(QEL_FerrionInstanceHandle) == 24);

static_assert(sizeof(QEL_FerrionGuid) == 16);
static_assert(offsetof(QEL_FerrionSequenceNumber, high) == 0);
static_assert(offsetof(QEL_FerrionSequenceNumber, low) == 4);
static_assert(sizeof(QEL_FerrionSequenceNumber) == 8);
static_assert(offsetof(QEL_FerrionSampleIdentity, writerGuid) == 0);
static_assert(offsetof(QEL_FerrionSampleIdentity, sequenceNumber) == 16);
static_assert(sizeof(QEL_FerrionSampleIdentity) == 24);
static_assert(offsetof(QEL_FerrionTime, seconds) == 0);
static_assert(offsetof(QEL_FerrionTime, nanoseconds) == 4);
static_assert(sizeof(QEL_FerrionTime) == 8);

static_assert(offsetof(QEL_FerrionWriteParams, flag) == 0);
static_assert(offsetof(QEL_FerrionWriteParams, identity) == 4);
static_assert(offsetof(QEL_FerrionWriteParams, relatedIdentity) == 28);
static_assert(offsetof(QEL_FerrionWriteParams, sourceTimestamp) == 52);
static_assert(offsetof(QEL_FerrionWriteParams, handle) == 60);
static_assert(offsetof(QEL_FerrionWriteParams, reserved) == 84);
static_assert(sizeof(QEL_FerrionWriteParams) == 140);

static_assert(offsetof(QEL_FerrionRouteEvent, kind) == 0);
static_assert(offsetof(QEL_FerrionRouteEvent, route) == 8);
static_assert(offsetof(QEL_FerrionRouteEvent, hostFields) == 16);
static_assert(sizeof(QEL_FerrionRouteEvent) == 48);

static_assert(offsetof(QEL_FerrionOutputStreamRequestStatus, instance) == 0);
static_assert(offsetof(QEL_FerrionOutputStreamRequestStatus, status) == 24);
static_assert(sizeof(QEL_FerrionOutputStreamRequestStatus) == 28);

constexpr QEL_FerrionInstanceHandle nilHandle = {{}, 16, 0};
constexpr QEL_FerrionSequenceNumber unknownNumber = {-1, 0xFFFFFFFFU};
constexpr QEL_FerrionSampleIdentity unknownIdentity = {{}, unknownNumber};
constexpr QEL_FerrionTime invalidTime = {-1, 0};

template<class Number> int32_t order(Number a, Number b)
{
    return a < b ? -1 : (a > b ? 1 : 0);
}

} // namespace

// compatibility 19: "automatic" and "unknown" have the same bytes
const int32_t QEL_FERRION_COUNT_UNLIMITED = -1;
const QEL_FerrionGuid QEL_FERRION_GUID_AUTO = {};
const QEL_FerrionGuid QEL_FERRION_GUID_UNKNOWN = {};
const QEL_FerrionInstanceHandle QEL_FERRION_INSTANCE_HANDLE_NIL = nilHandle;
const QEL_FerrionSequenceNumber QEL_FERRION_SEQUENCE_NUMBER_UNKNOWN = unknownNumber;
const QEL_FerrionSequenceNumber QEL_FERRION_SEQUENCE_NUMBER_AUTO = unknownNumber;
const QEL_FerrionSampleIdentity QEL_FERRION_SAMPLE_IDENTITY_UNKNOWN = unknownIdentity;
const QEL_FerrionSampleIdentity QEL_FERRION_SAMPLE_IDENTITY_AUTO = unknownIdentity;
const QEL_FerrionTime QEL_FERRION_TIME_INVALID = invalidTime;
const QEL_FerrionWriteParams QEL_FERRION_WRITE_PARAMS_DEFAULT = {
    {1, 0, 0, 0}, unknownIdentity, unknownIdentity, invalidTime, nilHandle, {}};

int32_t QEL_FerrionVersion_compare(const QEL_FerrionVersion *a,
                                   const QEL_FerrionVersion *b) noexcept
{
    if (a->major != b->major) {
        return order(a->major, b->major);
    }
    if (a->minor != b->minor) {
        return order(a->minor, b->minor);
    }
    return order(a->release, b->release);
}

int32_t QEL_FerrionRouteEvent_initialize(QEL_FerrionRouteEvent *self,
                                         QEL_FerrionRoute *route) noexcept
{
    if (self == nullptr || route == nullptr) {
        return 0;
    }
    self->route = route;
    self->kind = 0;
    return 1;
}

void QEL_FerrionRouteEvent_finalize(QEL_FerrionRouteEvent *self) noexcept
{
    if (self == nullptr) {
        return;
    }
    self->kind = 0;
    self->route = nullptr;
}

QEL_FerrionRouteEvent *QEL_FerrionRouteEvent_newI(QEL_FerrionRoute *route) noexcept
{
    auto *self = static_cast<QEL_FerrionRouteEvent *>(calloc(1, sizeof(QEL_FerrionRouteEvent)));
    // compatibility 5: an event that cannot be initialized (only a null route does that) is not
    // freed
    // NOLINTNEXTLINE(clang-analyzer-unix.Malloc)
    return QEL_FerrionRouteEvent_initialize(self, route) != 0 ? self : nullptr;
}

void QEL_FerrionRouteEvent_deleteI(QEL_FerrionRouteEvent *self) noexcept
{
    QEL_FerrionRouteEvent_finalize(self);
    free(self);
}

void QEL_FerrionOutputStreamRequestStatus_initialize(
    QEL_FerrionOutputStreamRequestStatus *) noexcept
{
}

void QEL_FerrionOutputStreamRequestStatus_finalize(
    QEL_FerrionOutputStreamRequestStatus *self) noexcept
{
    self->instance = QEL_FERRION_INSTANCE_HANDLE_NIL;
    self->status = 0;
}

QEL_FerrionOutputStreamRequestStatus *QEL_FerrionOutputStreamRequestStatus_copy(
    QEL_FerrionOutputStreamRequestStatus *destination,
    const QEL_FerrionOutputStreamRequestStatus *source) noexcept
{
    if (destination == nullptr || source == nullptr) {
        return nullptr;
    }
    destination->instance = source->instance;
    destination->status = source->status;
    return destination;
}
