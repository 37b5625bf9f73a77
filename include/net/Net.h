// The library's front door: start and stop, and the parameter registration.
#pragma once

namespace Tarvik {
namespace Net {

// Starts the process-wide resolver task; false when it could not be started.
bool initializeLibrary();
// Asks the resolver to stop; does not wait for its threads.
bool closeLibrary();
// Asks the resolver to stop and waits until its threads have ended; returns
// the result of the wait.
bool forcedCloseLibrary();
// Registers the library's parameters in the parameter database; false when
// the database refused one (those registered before it stay registered).
bool addParametersToDB();

}  // namespace Net
}  // namespace Tarvik
