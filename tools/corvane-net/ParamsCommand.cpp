// corvane-net params: the registered configuration parameters.
#include "Command.h"
#include "net/Net.h"
#include "platform/ParameterInfoDB.h"

namespace corvane {
namespace {

int runParams(CommandContext& io_ctx) {
    // The parameters are registered when the library is loaded; referencing it
    // keeps the linker from leaving it out of a build that uses nothing else.
    bool (*volatile pRegister)() = &Tarvik::Net::addParametersToDB;
    (void)pRegister;
    for (const Tarvik::ParameterInfo& info : Tarvik::ParameterInfoDB::getInstance().list()) {
        Json item = Json::object();
        item["name"] = info.name;
        item["type"] = Tarvik::getParameterTypeName(info.type);
        item["default"] = info.hasDefault ? Json(info.defaultValue) : Json();
        item["description"] = info.description;
        io_ctx.emit(item);
    }
    return 0;
}

const CommandRegistrar s_registrar({"params", 90, "the registered configuration parameters",
                                    "Lists the registered configuration parameters: name, type,\n"
                                    "registered default (null when none) and description.",
                                    [](CLI::App&) -> CommandRun { return runParams; }});

}  // namespace
}  // namespace corvane
