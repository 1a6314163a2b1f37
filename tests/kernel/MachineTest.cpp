// The machine as one object: what is left of it when it goes, and how little of it a test needs.
#include "simwin/machine/Machine.h"
#include "simwin/devices/build/Devices.h"
#include "simwin/devices/tree/DosNames.h"
#include "simwin/kernel/Call.h"
#include "simwin/kernel/Process.h"
#include "simwin/registry/Registry.h"
#include "simwin/win32.h"

#include <iterator>
#include <string>

#include <gtest/gtest.h>

// What a program sees that meets every room which counts something up or keeps something.
static std::string LookAround() {
    using namespace simwin;
    char target[520] = "", name[MAX_PATH] = "";
    QueryDosDeviceA("COM7", target, sizeof(target));
    GetModuleFileNameA(nullptr, name, sizeof(name));
    const HANDLE file = CreateFileA("C:\\new.txt", GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr);
    const HANDLE event = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    Sleep(10);
    CRITICAL_SECTION lock;
    InitializeCriticalSection(&lock);
    EnterCriticalSection(&lock); // never left: the next machine must not take it for held
    return std::string(target) + name + std::to_string(GetCurrentThreadId()) + " " +
           std::to_string(reinterpret_cast<std::uintptr_t>(file)) + " " +
           std::to_string(reinterpret_cast<std::uintptr_t>(event)) + " " + std::to_string(GetTickCount());
}

static std::string Live() {
    machine::Setup setup;
    setup.seed = 7;
    const machine::Machine machine(setup);
    machine::DevicesDescription description;
    machine::DeviceDescription& device = description.devices.emplace_back();
    device.id = "ACPI\\PNP0501\\1";
    device.portName = "COM7";
    std::string seen = machine::BuildDevices(description);
    machine::AddFault({.call = "CreateEventA", .on = "*", .error = simwin::ERROR_NOT_ENOUGH_MEMORY});
    machine::ProcessStart start;
    start.imagePath = "C:\\life.exe";
    const machine::Process* process = machine::StartHosted(start, [&seen] {
        seen += LookAround();
        return 5;
    });
    seen += machine::OutcomeLine(machine::RunMachine({}));
    for (const machine::Operation* operation : machine::AllOperations()) {
        seen += operation->count ? operation->name + std::to_string(operation->count) + " " : "";
    }
    return seen + std::to_string(process->id) + " " + std::to_string(process->exitCode);
}

TEST(Machine, TheSecondLifeIsLikeTheFirst) {
    const std::string first = Live();
    EXPECT_EQ(first, Live());
    EXPECT_NE(first.find("\\Device\\"), std::string::npos) << first;
    EXPECT_EQ(first.substr(first.size() - 2), " 5") << first;
}

TEST(Machine, ARoomLivesWithoutTheOthers) {
    static constexpr machine::RoomMaker Rooms[] = {machine::MakeScheduler, machine::MakeDosNames};
    const machine::Machine machine(machine::Setup{}, Rooms);
    machine::TheDosNames().Define("COM7", "\\Device\\Serial0", "program");
    machine::TheDosNames().Define("com7", "\\Device\\Serial1", "program");
    ASSERT_NE(machine::TheDosNames().InForce("COM7"), nullptr);
    EXPECT_EQ(machine::TheDosNames().InForce("COM7")->target, "\\Device\\Serial1");
}
