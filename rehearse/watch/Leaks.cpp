#include "rehearse/watch/Leaks.h"

#include "rehearse/watch/LogOutput.h"

#include "simwin/files/Files.h"
#include "simwin/kernel/Process.h"
#include "simwin/kernel/Text.h"

namespace rehearse {

namespace {
// Handles of one kind that stay open until the process ends, by design.
struct LeftOpen {
    machine::ObjectKind kind;
    std::size_t count;
};
} // namespace
constexpr std::size_t AnyNumber = ~std::size_t{0};
constexpr LeftOpen ByDesign[] = {
    {machine::ObjectKind::DeviceNotification, AnyNumber}, // a service never unregisters
    {machine::ObjectKind::Event, 2},                      // what the log signals after a record, and after an open
    {machine::ObjectKind::Thread, 1},                     // what closes the log file
};

static bool IsLogFile(const machine::HandleEntry& entry) {
    const auto* file = dynamic_cast<const machine::OpenFile*>(entry.object.Get());
    return file && file->node && machine::EqualNoCase(file->node->Path(), LogFilePath());
}

// A balloon's pipe stays with its server until the process ends if the server cannot be asked to end.
static bool IsServedPipe(const machine::HandleEntry& entry) {
    return std::string_view(entry.call) == "CreateNamedPipeA";
}

static std::size_t CountLeaks(const machine::Process& process) {
    std::map<machine::ObjectKind, std::size_t> open;
    for (const auto& [handle, entry] : process.handles.Entries()) {
        if (!IsLogFile(entry) && !IsServedPipe(entry)) {
            ++open[entry.object->kind];
        }
    }
    for (const LeftOpen& row : ByDesign) {
        std::size_t& count = open[row.kind];
        count -= count < row.count ? count : row.count;
    }
    std::size_t leaks = 0;
    for (const auto& [kind, count] : open) {
        leaks += count;
    }
    return leaks;
}

void Leaks::Watch() {
    machine::OnProcessEnd([this](machine::Process& process) {
        if (!m_isClosed) {
            m_handles[&process] = CountLeaks(process);
        }
    });
}

std::size_t Leaks::HandlesOf(const machine::Process* process) const {
    const auto found = m_handles.find(process);
    return found == m_handles.end() ? 0 : found->second;
}

} // namespace rehearse
