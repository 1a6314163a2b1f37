#include "simwin/kernel/api.h"

#include "simwin/kernel/Call.h"
#include "simwin/kernel/Clock.h"
#include "simwin/kernel/Setup.h"

namespace machine {

constexpr std::int64_t MsPerDay = 86'400'000;
constexpr std::int64_t DaysTo1970 = 134'774; // from 1601-01-01
constexpr std::uint64_t TicksPerMs = 10'000; // a FILETIME counts 100 ns

// Days since 1970-01-01 of a date of the Gregorian calendar.
static std::int64_t DaysFromDate(std::int64_t year, unsigned month, unsigned day) {
    year -= month <= 2;
    const std::int64_t era = (year >= 0 ? year : year - 399) / 400;
    const auto yearOfEra = static_cast<unsigned>(year - era * 400);
    const unsigned dayOfYear = (153 * (month + (month > 2 ? -3u : 9u)) + 2) / 5 + day - 1;
    const unsigned dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return era * 146'097 + static_cast<std::int64_t>(dayOfEra) - 719'468;
}

std::uint64_t FileTimeOf(std::uint64_t atMs) {
    const Setup& setup = TheSetup();
    const std::int64_t days = DaysFromDate(setup.year, setup.month, setup.day) + DaysTo1970;
    const std::int64_t ms = days * MsPerDay + (setup.hour * 3600ll + setup.minute * 60ll + setup.second) * 1000;
    return (static_cast<std::uint64_t>(ms) + atMs) * TicksPerMs;
}

std::uint64_t FileTimeNow() {
    return FileTimeOf(Now());
}

simwin::SYSTEMTIME SystemTimeOf(std::uint64_t fileTime) {
    const auto ms = static_cast<std::int64_t>(fileTime / TicksPerMs);
    const std::int64_t days = ms / MsPerDay - DaysTo1970;
    const std::int64_t ofDay = ms % MsPerDay;
    const std::int64_t z = days + 719'468;
    const std::int64_t era = (z >= 0 ? z : z - 146'096) / 146'097;
    const auto dayOfEra = static_cast<unsigned>(z - era * 146'097);
    const unsigned yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36'524 - dayOfEra / 146'096) / 365;
    const unsigned dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const unsigned shifted = (5 * dayOfYear + 2) / 153;
    const unsigned month = shifted < 10 ? shifted + 3 : shifted - 9;
    const std::int64_t year = static_cast<std::int64_t>(yearOfEra) + era * 400 + (month <= 2);
    simwin::SYSTEMTIME time = {};
    time.wYear = static_cast<simwin::WORD>(year);
    time.wMonth = static_cast<simwin::WORD>(month);
    time.wDay = static_cast<simwin::WORD>(dayOfYear - (153 * shifted + 2) / 5 + 1);
    time.wDayOfWeek = static_cast<simwin::WORD>((days % 7 + 11) % 7); // 1970-01-01 was a Thursday
    time.wHour = static_cast<simwin::WORD>(ofDay / 3'600'000);
    time.wMinute = static_cast<simwin::WORD>(ofDay / 60'000 % 60);
    time.wSecond = static_cast<simwin::WORD>(ofDay / 1000 % 60);
    time.wMilliseconds = static_cast<simwin::WORD>(ofDay % 1000);
    return time;
}

} // namespace machine

namespace simwin {

static std::uint64_t Whole(const FILETIME* time) {
    return static_cast<std::uint64_t>(time->dwHighDateTime) << 32 | time->dwLowDateTime;
}

DWORD GetLastError() {
    SIM_CALL("GetLastError", "");
    return machine::CurrentThread()->lastError;
}

void SetLastError(DWORD error) {
    SIM_CALL("SetLastError", "");
    machine::SetError(error);
}

DWORD GetTickCount() {
    SIM_CALL("GetTickCount", "");
    return machine::TickCount();
}

void GetLocalTime(SYSTEMTIME* time) {
    SIM_CALL("GetLocalTime", "");
    *time = machine::SystemTimeOf(machine::FileTimeNow());
}

BOOL FileTimeToLocalFileTime(const FILETIME* utc, FILETIME* local) {
    SIM_CALL("FileTimeToLocalFileTime", "");
    *local = *utc;
    return TRUE;
}

BOOL FileTimeToSystemTime(const FILETIME* time, SYSTEMTIME* out) {
    SIM_CALL("FileTimeToSystemTime", "");
    if (time->dwHighDateTime & 0x80000000u) {
        machine::SetError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    *out = machine::SystemTimeOf(Whole(time));
    return TRUE;
}

void Sleep(DWORD ms) {
    SIM_CALL("Sleep", "");
    if (ms == INFINITE) {
        machine::Block(machine::WaitKind::Object, "nothing: it sleeps forever", machine::NoLimit);
    } else {
        machine::SleepMs(ms);
    }
}

} // namespace simwin
