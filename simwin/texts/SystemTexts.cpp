// The system's own English texts of error codes, for FormatMessageA.

#include "simwin/kernel/Call.h"
#include "simwin/kernel/Process.h"
#include "simwin/texts/api.h"

#include <cstring>

namespace machine {

namespace {
struct SystemText {
    simwin::DWORD code;
    const char* text; // without its line end
};
} // namespace
constexpr SystemText SystemTexts[] = {
    {0, "The operation completed successfully."},
    {1, "Incorrect function."},
    {2, "The system cannot find the file specified."},
    {3, "The system cannot find the path specified."},
    {5, "Access is denied."},
    {6, "The handle is invalid."},
    {8, "Not enough memory resources are available to process this command."},
    {13, "The data is invalid."},
    {18, "There are no more files."},
    {19, "The media is write protected."},
    {21, "The device is not ready."},
    {31, "A device attached to the system is not functioning."},
    {32, "The process cannot access the file because it is being used by another process."},
    {50, "The request is not supported."},
    {53, "The network path was not found."},
    {80, "The file exists."},
    {87, "The parameter is incorrect."},
    {112, "There is not enough space on the disk."},
    {120, "This function is not supported on this system."},
    {121, "The semaphore timeout period has expired."},
    {122, "The data area passed to a system call is too small."},
    {123, "The filename, directory name, or volume label syntax is incorrect."},
    {126, "The specified module could not be found."},
    {127, "The specified procedure could not be found."},
    {131, "An attempt was made to move the file pointer before the beginning of the file."},
    {145, "The directory is not empty."},
    {161, "The specified path is invalid."},
    {170, "The requested resource is in use."},
    {183, "Cannot create a file when that file already exists."},
    {230, "The pipe state is invalid."},
    {231, "All pipe instances are busy."},
    {232, "The pipe is being closed."},
    {233, "No process is on the other end of the pipe."},
    {234, "More data is available."},
    {258, "The wait operation timed out."},
    {259, "No more data is available."},
    {267, "The directory name is invalid."},
    {433, "A device which does not exist was specified."},
    {483, "The request failed due to a fatal device hardware error."},
    {535, "There is a process on other end of the pipe."},
    {536, "Waiting for a process to open the other end of the pipe."},
    {997, "Overlapped I/O operation is in progress."},
    {1004, "Invalid flags."},
    {1005, "The volume does not contain a recognized file system.\r\n"
           "Please make sure that all required file system drivers are loaded and that the volume is not corrupted."},
    {1006, "The volume for a file has been externally altered so that the opened file is no longer valid."},
    {1007, "The requested operation cannot be performed in full-screen mode."},
    {1008, "An attempt was made to reference a token that does not exist."},
    {1018, "Illegal operation attempted on a registry key that has been marked for deletion."},
    {1052, "The requested control is not valid for this service."},
    {1053, "The service did not respond to the start or control request in a timely fashion."},
    {1055, "The service database is locked."},
    {1056, "An instance of the service is already running."},
    {1057, "The account name is invalid or does not exist, or the password is invalid for the account name specified."},
    {1058, "The service cannot be started, either because it is disabled or because it has no enabled devices "
           "associated with it."},
    {1060, "The specified service does not exist as an installed service."},
    {1061, "The service cannot accept control messages at this time."},
    {1062, "The service has not been started."},
    {1063, "The service process could not connect to the service controller."},
    {1072, "The specified service has been marked for deletion."},
    {1073, "The specified service already exists."},
    {1113, "No mapping for the Unicode character exists in the target multi-byte code page."},
    {1117, "The request could not be performed because of an I/O device error."},
    {1168, "Element not found."},
    {1212, "The format of the specified domain name is invalid."},
    {1223, "The operation was canceled by the user."},
    {1245, "The operation being requested was not performed because the user has not logged on to the network. "
           "The specified service does not exist."},
    {1312, "A specified logon session does not exist. It may already have been terminated."},
    {1313, "A specified privilege does not exist."},
    {1314, "A required privilege is not held by the client."},
    {1338, "The security descriptor structure is invalid."},
    {1355, "The specified domain either does not exist or could not be contacted."},
    {1400, "Invalid window handle."},
    {1410, "Class already exists."},
    {1411, "Class does not exist."},
    {1460, "This operation returned because the timeout period expired."},
    {1812, "The specified image file did not contain a resource section."},
    {1813, "The specified resource type cannot be found in the image file."},
    {1814, "The specified resource name cannot be found in the image file."},
};

constexpr simwin::DWORD ErrorMessageNotFound = 317;

// The text of a code, or of the error in an HRESULT of Windows' own facility; null without one.
static const char* FindText(simwin::DWORD code) {
    constexpr simwin::DWORD OfWindows = 0x80070000;
    for (const SystemText& row : SystemTexts) {
        if (row.code == code || (row.code | OfWindows) == code) {
            return row.text;
        }
    }
    return nullptr;
}

} // namespace machine

namespace simwin {

DWORD FormatMessageA(DWORD flags, LPCVOID, DWORD message, DWORD, LPSTR buffer, DWORD size, __builtin_va_list*) {
    SIM_CALL("FormatMessageA", "", ERROR_NOT_ENOUGH_MEMORY);
    constexpr DWORD Modelled = FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM;
    if ((flags & ~Modelled) || !(flags & FORMAT_MESSAGE_FROM_SYSTEM)) {
        machine::NotModelled("FormatMessageA", "messages other than the system's");
    }
    DWORD error = simCall.error;
    const char* found = machine::FindText(message);
    if (!error && !found) {
        error = machine::ErrorMessageNotFound;
    }
    if (!error && !buffer) {
        error = ERROR_INVALID_PARAMETER;
    }
    if (error) {
        machine::SetError(error);
        return 0;
    }
    const std::string text = std::string(found) + "\r\n";
    LPSTR to = buffer;
    if (flags & FORMAT_MESSAGE_ALLOCATE_BUFFER) {
        to = static_cast<LPSTR>(machine::CurrentProcess()->heap.Allocate(text.size() + 1, "FormatMessageA"));
        std::memcpy(buffer, &to, sizeof to);
    } else if (size < text.size() + 1) {
        machine::SetError(ERROR_INSUFFICIENT_BUFFER);
        return 0;
    }
    std::memcpy(to, text.c_str(), text.size() + 1);
    return static_cast<DWORD>(text.size());
}

} // namespace simwin
