// What the resolver's source files share for logging.
#pragma once

#include <ace/Time_Value.h>

#include "platform/Logger.h"

namespace Tarvik {

// "corvane.net.HostNameServer", the logger of every part of the resolver.
Logger& hostNameServerLogger();

// Milliseconds of a time value as the logs print them (seconds x 1000 +
// microseconds / 1000), without overflowing for ACE_Time_Value::max_time.
long long toLogMilliseconds(const ACE_Time_Value& in_tv);

}  // namespace Tarvik
