// What Java has to say: the VM's own messages, what adapters print to System.err and log, and what
// they throw. It goes into the log like everything else; of a failure the relay keeps a sentence
// for its own line.
#ifndef FERRY_PROCESS_JAVA_OUTPUT_H
#define FERRY_PROCESS_JAVA_OUTPUT_H

#include <jni.h>

#include "engine/call.h"
#include "process/console.h"

namespace ferry::javaoutput {

/// Where it goes; null for standard error, as it is. Waits for threads that are writing.
void setConsole(Console *console);

/// Has the VM that is started with it hand over its own messages.
JavaVMOption vmOption();

/// Takes the place of System.err. False, with Java's own words in the log, when the relay's classes
/// do not fit. The calling thread is attached.
bool install(JNIEnv *env);

/// What the VM has described on this thread since it was last asked: the first failure, and the
/// rejected samples of all.
FailureDetails takeFailure();

} // namespace ferry::javaoutput

#endif
