// Objects destroyed by ACE's object manager at process exit.
#pragma once

#include <ace/Cleanup.h>
#include <ace/Object_Manager.h>

namespace Tarvik {

// Registers itself with ACE's object manager, which destroys it at exit.
class AceCleanupNoT : public ACE_Cleanup {
public:
    AceCleanupNoT() { ACE_Object_Manager::at_exit(this, nullptr, "Tarvik::AceCleanup"); }
};

// A T destroyed at process exit by ACE's object manager.
template <class T>
class AceCleanup : public AceCleanupNoT, public T {};

}  // namespace Tarvik
