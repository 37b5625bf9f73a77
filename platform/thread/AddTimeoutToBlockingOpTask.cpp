#include "platform/AddTimeoutToBlockingOpTask.h"

namespace Tarvik {

const Logger& AddTimeoutToBlockingOpTask::blockingOpLogger() {
    static Logger& s_logger = getLogger("corvane.thread.AddTimeoutToBlockingOpTask");
    return s_logger;
}

}  // namespace Tarvik
