#include "simwin/kernel/Optional.h"

namespace machine {

static const OptionalOperation* g_optional;

OptionalOperation::OptionalOperation(const char* operationLibrary, const char* operationName,
                                     simwin::FARPROC operationAddress, unsigned version, unsigned build)
    : library(operationLibrary), name(operationName), address(operationAddress), sinceVersion(version),
      sinceBuild(build), next(g_optional) {
    g_optional = this;
}

const OptionalOperation* FirstOptionalOperation() {
    return g_optional;
}

} // namespace machine
