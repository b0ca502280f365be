// Natives of com.qel.dds.internal.OsLock. A lock belongs to the descriptor that this opens, so it
// ends when that is closed, at the latest with the process, and not when others open and close the
// same file.
#include <cerrno>
#include <climits>
#include <cstring>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "native.h"

namespace {

int openForLock(const char *path, bool create)
{
    const int flags = O_CLOEXEC | O_NONBLOCK | (create ? O_CREAT : 0);
    const int descriptor = open(path, O_RDWR | flags, 0666);
    const int error = errno;
    if (descriptor >= 0 || (error != EACCES && error != EROFS)) {
        return descriptor;
    }
    const int readable = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (readable < 0 && errno == ENOENT) {
        // It could not be made: that is what has to be mended.
        errno = error;
    }
    return readable;
}

} // namespace

/// The descriptor, or a negative error number: EAGAIN when another descriptor has the lock. What is
/// no regular file, or lies where there are no locks, is opened and not locked. `path` ends with
/// NUL.
QDDS_NATIVE(jint, Java_com_qel_dds_internal_OsLock_lock, jbyteArray path, jboolean create)
{
    jbyte name[PATH_MAX];
    const jsize length = env->GetArrayLength(path);
    if (length > PATH_MAX) {
        return -ENAMETOOLONG;
    }
    env->GetByteArrayRegion(path, 0, length, name);
    const int descriptor = openForLock(reinterpret_cast<const char *>(name), create == JNI_TRUE);
    if (descriptor < 0) {
        return -errno;
    }
    struct stat status = {};
    if (fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode) &&
        flock(descriptor, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
        close(descriptor);
        return -EAGAIN;
    }
    return descriptor;
}

QDDS_NATIVE(jstring, Java_com_qel_dds_internal_OsLock_reason, jint error)
{
    return env->NewStringUTF(std::strerror(error));
}

QDDS_NATIVE(void, Java_com_qel_dds_internal_OsLock_unlock, jint descriptor)
{
    close(descriptor);
}
