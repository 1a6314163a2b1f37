// The real balloon on a screen beside a task bar: place, size, colours and texts as the layout has them, with the fonts
// that this machine has; what it looked like is kept as a picture. A client of the pipe changes its texts.
#include "platform/win32.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr DWORD PatienceMs = 20000;
constexpr int BarSize = 40;
constexpr char Title[] = "USB Serial Port";
constexpr char Text[] = "COM7, COM8";
constexpr COLORREF DarkFill = 0x1F1F1F, DarkFrame = 0x5D5D5D;

void SetUserDword(const char* key, const char* name, DWORD value, DWORD type = REG_DWORD) {
    const std::string text = std::to_string(value);
    HKEY opened = nullptr;
    ASSERT_EQ(RegCreateKeyExA(HKEY_CURRENT_USER, key, 0, nullptr, 0, KEY_WRITE, nullptr, &opened, nullptr), 0);
    if (type == REG_DWORD)
        RegSetValueExA(opened, name, 0, type, reinterpret_cast<const BYTE*>(&value), sizeof(value));
    else
        RegSetValueExA(opened, name, 0, type, reinterpret_cast<const BYTE*>(text.c_str()),
                       static_cast<DWORD>(text.size() + 1));
    RegCloseKey(opened);
}

struct Process {
    HANDLE handle = nullptr;

    explicit Process(std::string commandLine) {
        STARTUPINFOA startup = {};
        startup.cb = sizeof(startup);
        PROCESS_INFORMATION made = {};
        EXPECT_TRUE(
            CreateProcessA(nullptr, commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &made))
            << commandLine;
        CloseHandle(made.hThread);
        handle = made.hProcess;
    }
    Process(const Process&) = delete;
    ~Process() {
        TerminateProcess(handle, 99);
        CloseHandle(handle);
    }
    bool HasEnded(DWORD waitMs) const { return WaitForSingleObject(handle, waitMs) == WAIT_OBJECT_0; }
    DWORD ExitCode() const {
        DWORD code = 98;
        EXPECT_TRUE(HasEnded(PatienceMs));
        GetExitCodeProcess(handle, &code);
        return code;
    }
};

// The product as its service starts it, with settings of its own.
std::string BalloonCommand(const std::string& keys, int timeMs) {
    char temp[MAX_PATH] = "";
    GetTempPathA(sizeof(temp), temp);
    const std::string folder = std::string(temp) + "balloon\\";
    CreateDirectoryA(folder.c_str(), nullptr);
    char self[MAX_PATH] = "";
    GetModuleFileNameA(nullptr, self, sizeof(self));
    *StrRChrA(self, nullptr, '\\') = 0;
    EXPECT_TRUE(
        CopyFileA((std::string(self) + "\\Quillmarch.exe").c_str(), (folder + "Quillmarch.exe").c_str(), FALSE));
    std::ofstream(folder + "Quillmarch.INI") << "[BalloonTips]\n" << keys;
    return folder + "Quillmarch.exe -balloon -bt=0 -time=" + std::to_string(timeMs) + " -title=\"" + Title +
           "\" -text=\"" + Text + "\" -icon=102";
}

// Moves the task bar that Wine has, without a place, to the lower edge.
RECT PlaceBar() {
    HWND bar = nullptr;
    for (DWORD waited = 0; !(bar = FindWindowA("Shell_TrayWnd", nullptr)) && waited < PatienceMs; waited += 50)
        Sleep(50);
    EXPECT_NE(bar, nullptr);
    const int width = GetSystemMetrics(SM_CXSCREEN), height = GetSystemMetrics(SM_CYSCREEN);
    SetWindowPos(bar, HWND_TOPMOST, 0, height - BarSize, width, BarSize, SWP_NOACTIVATE | SWP_SHOWWINDOW);
    return {0, height - BarSize, width, height};
}

HWND WaitForBalloon() {
    for (DWORD waited = 0; waited < PatienceMs; waited += 50) {
        const HWND window = FindWindowA("TarnHolveBalloonTipClass", "TarnHolveBalloonTip");
        if (window && IsWindowVisible(window)) {
            Sleep(300); // what it draws reaches the screen
            return window;
        }
        Sleep(50);
    }
    return nullptr;
}

SIZE Measure(LOGFONTA font, const char* text) {
    const HDC screen = GetDC(nullptr);
    const HFONT made = CreateFontIndirectA(&font);
    const HGDIOBJ before = SelectObject(screen, made);
    RECT rect = {};
    DrawTextA(screen, text, -1, &rect, DT_CALCRECT | DT_NOPREFIX);
    SelectObject(screen, before);
    DeleteObject(made);
    ReleaseDC(nullptr, screen);
    return {rect.right, rect.bottom};
}

// Where the texts stand and how large the window is, with this machine's fonts.
struct Layout {
    SIZE title, text;
    int titleX, titleY, textX, textY, width, height;

    Layout(int dpi, bool isFlat) {
        const auto scale = [dpi](int n) { return MulDiv(n, dpi, 96); };
        NONCLIENTMETRICSA metrics = {};
        metrics.cbSize = sizeof(metrics);
        SystemParametersInfoA(SPI_GETNONCLIENTMETRICS, sizeof(metrics), &metrics, 0);
        LOGFONTA titleFont = metrics.lfSmCaptionFont, textFont = metrics.lfStatusFont;
        if (isFlat) {
            titleFont.lfHeight = titleFont.lfHeight * 14 / 10;
            textFont.lfHeight = textFont.lfHeight * 13 / 10;
            textFont.lfWeight = FW_NORMAL;
        }
        titleFont.lfCharSet = textFont.lfCharSet = DEFAULT_CHARSET;
        title = Measure(titleFont, Title);
        text = Measure(textFont, Text);
        OSVERSIONINFOA version = {};
        version.dwOSVersionInfoSize = sizeof(version);
        GetVersionExA(&version);
        const bool isAligned = version.dwMajorVersion >= 10;
        const int icon = dpi == 96 ? 16 : 32;
        titleX = scale(12) + icon * 3 / 2;
        titleY = scale(6) + scale(2);
        textX = isAligned ? titleX : scale(12);
        textY = titleY + title.cy + scale(isAligned ? 4 : 7);
        width = scale(12) + std::max<int>(titleX + title.cx + icon * 6 / 5, textX + text.cx);
        height = scale(6) + textY + text.cy + 4;
    }
};

// A part of the screen.
struct Picture {
    int width, height;
    std::vector<DWORD> pixels; // 0x00RRGGBB, from the top

    Picture(int left, int top, int w, int h) : width(w), height(h), pixels(static_cast<size_t>(w) * h) {
        const HDC screen = GetDC(nullptr), memory = CreateCompatibleDC(screen);
        const HBITMAP bitmap = CreateCompatibleBitmap(screen, w, h);
        const HGDIOBJ before = SelectObject(memory, bitmap);
        BitBlt(memory, 0, 0, w, h, screen, left, top, SRCCOPY);
        SelectObject(memory, before);
        BITMAPINFO info = {};
        info.bmiHeader = {sizeof(BITMAPINFOHEADER), w, -h, 1, 32, BI_RGB, 0, 0, 0, 0, 0};
        EXPECT_EQ(GetDIBits(memory, bitmap, 0, static_cast<UINT>(h), pixels.data(), &info, DIB_RGB_COLORS), h);
        DeleteObject(bitmap);
        DeleteDC(memory);
        ReleaseDC(nullptr, screen);
    }
    DWORD At(int x, int y) const { return pixels[static_cast<size_t>(y) * width + x] & 0xFFFFFF; }
    // How many pixels in a rectangle are not of the colour.
    int CountOther(int left, int top, int w, int h, DWORD colour) const {
        int count = 0;
        for (int y = top; y < top + h; ++y)
            for (int x = left; x < left + w; ++x)
                count += At(x, y) != colour;
        return count;
    }
    void Save(const std::string& name) const {
        CreateDirectoryA(QM_PICTURE_FOLDER, nullptr);
        std::ofstream file(std::string(QM_PICTURE_FOLDER) + name + ".bmp", std::ios::binary);
        const DWORD bytes = static_cast<DWORD>(pixels.size() * 4);
        BITMAPFILEHEADER head = {0x4D42, 54 + bytes, 0, 0, 54};
        BITMAPINFOHEADER info = {sizeof(info), width, -height, 1, 32, BI_RGB, bytes, 0, 0, 0, 0};
        file.write(reinterpret_cast<const char*>(&head), sizeof(head));
        file.write(reinterpret_cast<const char*>(&info), sizeof(info));
        file.write(reinterpret_cast<const char*>(pixels.data()), bytes);
        EXPECT_TRUE(file.good());
    }
};

void Click(HWND window) {
    PostMessageA(window, WM_LBUTTONDOWN, MK_LBUTTON, MAKELPARAM(20, 20));
    PostMessageA(window, WM_LBUTTONUP, 0, MAKELPARAM(20, 20));
}

void BecomeDpiAware() {
    const auto aware = reinterpret_cast<BOOL(WINAPI*)()>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA("user32.dll"), "SetProcessDPIAware")));
    ASSERT_NE(aware, nullptr);
    aware();
}

int ScreenDpi() {
    const HDC screen = GetDC(nullptr);
    const int dpi = GetDeviceCaps(screen, LOGPIXELSX);
    ReleaseDC(nullptr, screen);
    return dpi;
}

void CheckLook(bool isFlat, const std::string& name) {
    BecomeDpiAware();
    const int dpi = ScreenDpi();
    SetUserDword("Software\\Microsoft\\Windows\\CurrentVersion\\ThemeManager", "ThemeActive", 0, REG_SZ);
    const RECT bar = PlaceBar();
    const Process balloon(BalloonCommand(isFlat ? "Win11Style=1\n" : "Win10Style=0\n", 20000));
    const HWND window = WaitForBalloon();
    ASSERT_NE(window, nullptr);
    RECT rect = {};
    GetWindowRect(window, &rect);
    const Layout layout(dpi, isFlat);
    const Picture picture(rect.left - 16, rect.top - 16, layout.width + 32, layout.height + 32);
    picture.Save(name + "-" + std::to_string(dpi));
    EXPECT_EQ(rect.right, bar.right - MulDiv(32, dpi, 96));
    EXPECT_EQ(rect.bottom, bar.top - MulDiv(3, dpi, 96));
    EXPECT_EQ(rect.right - rect.left, layout.width);
    EXPECT_EQ(rect.bottom - rect.top, layout.height);

    const COLORREF back = isFlat ? DarkFill : GetSysColor(COLOR_INFOBK);
    const DWORD fill = (back & 0xFF) << 16 | (back & 0xFF00) | back >> 16;
    const auto at = [&](int x, int y) { return picture.At(16 + x, 16 + y); };
    const auto other = [&](int x, int y, int w, int h) { return picture.CountOther(16 + x, 16 + y, w, h, fill); };
    EXPECT_NE(at(0, 0), fill) << "the corner is round";
    EXPECT_EQ(at(layout.width / 2, 0), isFlat ? DarkFrame : 0u);
    EXPECT_EQ(at(layout.width / 2, 2), fill);
    EXPECT_GT(other(layout.titleX, layout.titleY, layout.title.cx, layout.title.cy), 50) << "the title";
    EXPECT_GT(other(layout.textX, layout.textY, layout.text.cx, layout.text.cy), 50) << "the text";
    EXPECT_EQ(other(layout.textX + layout.text.cx + 2, layout.textY, 8, layout.text.cy), 0) << "behind the text";
    EXPECT_GT(other(MulDiv(12, dpi, 96), layout.titleY, dpi / 6, layout.title.cy), 30) << "the icon";
    EXPECT_GT(other(layout.width - MulDiv(22, dpi, 96), MulDiv(5, dpi, 96), dpi / 6, dpi / 6), 10) << "the close mark";
    Click(window);
    EXPECT_EQ(balloon.ExitCode(), 0u);
}

TEST(Balloon, StandsBesideTheBarInTheFlatLook) {
    CheckLook(true, "balloon-flat");
}
TEST(Balloon, StandsBesideTheBarInTheClassicLook) {
    CheckLook(false, "balloon-classic");
}

HANDLE OpenPipe() {
    for (DWORD waited = 0; waited < PatienceMs; waited += 5) {
        const HANDLE pipe = CreateFileA("\\\\.\\pipe\\QuillmarchBalloonUpdate", GENERIC_WRITE, 0, nullptr,
                                        OPEN_EXISTING, SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION, nullptr);
        if (pipe != INVALID_HANDLE_VALUE)
            return pipe;
        Sleep(5);
    }
    return INVALID_HANDLE_VALUE;
}

std::vector<char> Record(const char* title, int timeMs) {
    std::vector<char> bytes(1160);
    memcpy(bytes.data(), &timeMs, 4);
    bytes[4] = 1;
    memcpy(&bytes[8], title, strlen(title));
    memcpy(&bytes[128], "COM42", 5);
    return bytes;
}

bool Send(HANDLE pipe, const std::vector<char>& bytes) {
    DWORD written = 0;
    return WriteFile(pipe, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
}

TEST(Balloon, TakesNewTextsByThePipeAndNoHarmByRandomMessages) {
    BecomeDpiAware();
    PlaceBar();
    const Process balloon(BalloonCommand("Win11Style=1\n", 55000));
    const HWND window = WaitForBalloon();
    ASSERT_NE(window, nullptr);
    RECT before = {}, after = {};
    GetWindowRect(window, &before);
    HANDLE pipe = OpenPipe();
    ASSERT_TRUE(Send(pipe, Record("A title that is a good deal longer than the first", 60000)));
    for (DWORD waited = 0; waited < PatienceMs; waited += 50) {
        GetWindowRect(window, &after);
        if (after.left < before.left)
            break;
        Sleep(50);
    }
    EXPECT_LT(after.left, before.left) << "it grows to the left";
    EXPECT_EQ(after.right, before.right) << "its anchor stays";
    const Picture picture(after.left - 16, after.top - 16, after.right - after.left + 32,
                          after.bottom - after.top + 32);
    picture.Save("balloon-updated");

    std::mt19937 random(12);
    int sent = 0;
    for (; sent < 1000 && !balloon.HasEnded(0); ++sent) {
        std::vector<char> bytes(random() % 3 ? 1 + random() % 1159 : 1160);
        for (char& byte : bytes)
            byte = static_cast<char>(random());
        if (bytes.size() == 1160)
            memcpy(bytes.data(), "\x60\xEA\0\0", 4); // what it says must not end the balloon before its time
        if (!Send(pipe, bytes)) {
            CloseHandle(pipe);
            pipe = OpenPipe();
        }
    }
    CloseHandle(pipe);
    EXPECT_EQ(sent, 1000) << "the balloon ended early";
    ASSERT_TRUE(IsWindow(window));
    Click(window);
    EXPECT_EQ(balloon.ExitCode(), 0u);
}

} // namespace
