// A program built against the installed package: it sees the registered parameters.
#include <iostream>

#include "net/Net.h"
#include "platform/ParameterInfoDB.h"

int main() {
    const auto parameters = Tarvik::ParameterInfoDB::getInstance().list();
    std::cout << parameters.size() << " parameters\n";
    // Referencing the library keeps the linker from dropping it; loading it registers the parameters.
    bool (*volatile pRegister)() = &Tarvik::Net::addParametersToDB;
    (void)pRegister;
    return parameters.size() == 6 ? 0 : 1;
}
