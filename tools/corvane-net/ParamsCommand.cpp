// corvane-net params: the registered configuration parameters.
#include "Command.h"
#include "net/Net.h"
#include "platform/ParameterInfoDB.h"

namespace corvane {
namespace {

int runParams(const std::vector<std::string>& in_args, CommandContext& io_ctx) {
    if (!in_args.empty()) throw UsageError("params takes no arguments");
    // The parameters are registered when the library is loaded; referencing it
    // keeps the linker from leaving it out of a build that uses nothing else.
    bool (*volatile pRegister)() = &Tarvik::Net::addParametersToDB;
    (void)pRegister;
    for (const Tarvik::ParameterInfo& info : Tarvik::ParameterInfoDB::getInstance().list()) {
        Json item = Json::object();
        item.set("name", info.name);
        item.set("type", Tarvik::getParameterTypeName(info.type));
        item.set("typeCode", info.type);
        item.set("default", info.hasDefault ? Json(info.defaultValue) : Json());
        item.set("description", info.description);
        io_ctx.emit(item);
    }
    return 0;
}

const CommandRegistrar s_registrar({"params", 90, "params",
                                    "Lists the registered configuration parameters: name, type,\n"
                                    "registered default (null when none) and description.",
                                    runParams});

}  // namespace
}  // namespace corvane
