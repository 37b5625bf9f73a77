// Assertion reports: a broken precondition is reported with the condition's
// source text and the call goes on; nothing aborts.
#pragma once

#include <functional>
#include <string>

#include "platform/Logger.h"

namespace Tarvik {

struct AssertionReport {
    std::string text;    // the condition's source text, or "Not implemented : ..."
    std::string logger;  // name of the logger the report belongs to
    std::string file;    // source file of the check
    int line = 0;        // source line of the check
};

class Assertion {
public:
    using Handler = std::function<void(const AssertionReport&)>;

    // Reports a failed check. The default handler writes an ERROR record
    // "ASSERTION FAILED: <text>" on the given logger.
    static void report(const Logger& in_logger, const char* in_szText, const char* in_szFile,
                       int in_iLine);

    // Replaces the handler (an empty one restores the default); returns the old one.
    static Handler setHandler(Handler in_handler);
};

}  // namespace Tarvik

// Evaluates to the condition's value; a false condition is reported with its text.
#define CORVANE_ASSERT(logger, cond) \
    ((cond) ? true : (::Tarvik::Assertion::report((logger), #cond, __FILE__, __LINE__), false))

// Reports a path that was never built: "Not implemented : <what>".
#define CORVANE_NOT_IMPLEMENTED(logger, what) \
    ::Tarvik::Assertion::report((logger), "Not implemented : " what, __FILE__, __LINE__)
