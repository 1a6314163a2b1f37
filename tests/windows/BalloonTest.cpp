// The real balloon on a screen with a task bar, compared pixel by pixel with what its layout says in this machine's
// fonts, at two resolutions and in three looks; and a client of its pipe. Each test runs on a desktop of its own, which
// takes the resolution that is set when it is made. What was seen is kept as pictures.
#include "tests/windows/Patience.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <random>
#include <string>
#include <vector>

constexpr DWORD BalloonLifeMs = 60000; // the product's own limit
constexpr int BarSize = 40;
constexpr int Surroundings = 16; // pixels of the desktop around the balloon, the gap to the bar among them
constexpr COLORREF DeskColour = 0x806040;
constexpr char InnerRun[] = "QM_BALLOON_DESKTOP";

namespace {
struct Process {
    HANDLE handle = nullptr;

    explicit Process(std::string commandLine, char* desktop = nullptr) {
        STARTUPINFOA startup = {};
        startup.cb = sizeof(startup);
        startup.lpDesktop = desktop;
        PROCESS_INFORMATION made = {};
        EXPECT_TRUE(
            CreateProcessA(nullptr, commandLine.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &made))
            << commandLine;
        CloseHandle(made.hThread);
        handle = made.hProcess;
    }
    Process(const Process&) = delete;
    ~Process() {
        TerminateProcess(handle, 99);
        CloseHandle(handle);
    }
    bool HasEnded(DWORD waitMs = 0) const { return WaitForSingleObject(handle, waitMs) == WAIT_OBJECT_0; }
    DWORD ExitCode(DWORD waitMs = PatienceMs) const {
        DWORD code = 98;
        EXPECT_TRUE(HasEnded(waitMs));
        GetExitCodeProcess(handle, &code);
        return code;
    }
};
} // namespace

static void SetUserValue(const char* key, const char* name, DWORD type, const void* bytes, size_t size) {
    HKEY opened = nullptr;
    ASSERT_EQ(RegCreateKeyExA(HKEY_CURRENT_USER, key, 0, nullptr, 0, KEY_WRITE, nullptr, &opened, nullptr), 0);
    EXPECT_EQ(RegSetValueExA(opened, name, 0, type, static_cast<const BYTE*>(bytes), static_cast<DWORD>(size)), 0);
    RegCloseKey(opened);
}
static void SetUserText(const char* key, const char* name, const std::string& text) {
    SetUserValue(key, name, REG_SZ, text.c_str(), text.size() + 1);
}

// variable: of the environment, null for the folder of this program.
static std::string PathOf(const char* variable) {
    char folder[MAX_PATH] = "";
    if (variable) {
        GetEnvironmentVariableA(variable, folder, sizeof(folder));
    } else {
        *(StrRChrA(folder, folder + GetModuleFileNameA(nullptr, folder, sizeof(folder)), '\\') + 1) = 0;
    }
    return folder;
}

// Runs the test itself on a desktop of this resolution, in a process of its own.
static void OnDesktop(DWORD dpi, const std::function<void(int dpi)>& body) {
    if (GetEnvironmentVariableA(InnerRun, nullptr, 0) != 0) {
        const auto becomeDpiAware = reinterpret_cast<BOOL(WINAPI*)()>(
            reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA("user32.dll"), "SetProcessDPIAware")));
        ASSERT_TRUE(becomeDpiAware && becomeDpiAware());
        body(static_cast<int>(dpi));
        return;
    }
    const auto* test = testing::UnitTest::GetInstance()->current_test_info();
    std::string name = std::string("balloon-") + test->name();
    SetUserText("Software\\Wine\\Explorer\\Desktops", name.c_str(), "1024x768");
    SetUserValue("Control Panel\\Desktop", "LogPixels", REG_DWORD, &dpi, sizeof(dpi));
    const HDESK desktop = CreateDesktopA(name.c_str(), nullptr, nullptr, 0, GENERIC_ALL, nullptr);
    ASSERT_NE(desktop, nullptr);
    SetEnvironmentVariableA(InnerRun, "1");
    const Process inner("\"" + PathOf(nullptr) + "balloon.exe\" --gtest_brief=1 --gtest_filter=Balloon." + test->name(),
                        name.data());
    SetEnvironmentVariableA(InnerRun, nullptr);
    EXPECT_EQ(inner.ExitCode(4 * PatienceMs), 0u);
    CloseDesktop(desktop);
    constexpr DWORD Usual = 96;
    SetUserValue("Control Panel\\Desktop", "LogPixels", REG_DWORD, &Usual, sizeof(Usual));
}

namespace {
// --- What is compared.

struct Look {
    const char* name;
    const char* windows; // the Windows that the program meets
    const char* keys;
    bool isFlat;
    int diameter;
};
} // namespace
constexpr Look Win10Look = {"win10", "win10", "", true, 2};
constexpr Look Win11Look = {"win11", "win10", "Win11Style=1\n", true, 7};
constexpr Look ClassicLook = {"classic", "win7", "Win10Style=0\n", false, 13};

namespace {
struct Texts {
    const char *title, *text;
};
} // namespace
constexpr Texts FirstTexts = {"USB Serial Port", "COM7, COM8"};

// The product as its service starts it, under a name for which Wine has the wanted version.
static std::string ProgramFor(const Look& look) {
    const std::string folder = PathOf("TEMP") + "\\balloon-" + look.name + "\\", name = std::string(look.name) + ".exe";
    CreateDirectoryA(folder.c_str(), nullptr);
    CopyFileA((PathOf(nullptr) + "Quillmarch.exe").c_str(), (folder + name).c_str(), FALSE);
    SetUserText(("Software\\Wine\\AppDefaults\\" + name).c_str(), "Version", look.windows);
    std::ofstream(folder + look.name + ".INI") << "[BalloonTips]\n" << look.keys;
    return folder + name;
}

static std::string BalloonCommand(const std::string& program, const Texts& texts) {
    return program + " -balloon -bt=0 -time=60000 -title=\"" + texts.title + "\" -text=\"" + texts.text +
           "\" -icon=102";
}

// A desktop of one colour, whose task bar, which Wine has without a place, is at the lower edge.
static RECT PrepareDesktop() {
    SetUserText("Software\\Microsoft\\Windows\\CurrentVersion\\ThemeManager", "ThemeActive", "0");
    // Of a layered window Wine shows what has alpha only, whatever the call says: the icons.
    SystemParametersInfoA(SPI_SETTOOLTIPFADE, 0, nullptr, 0);
    const int element = COLOR_BACKGROUND;
    SetSysColors(1, &element, &DeskColour);
    SetCursorPos(0, 0);
    HWND bar = nullptr;
    EXPECT_TRUE(WaitUntil([&] { return (bar = FindWindowA("Shell_TrayWnd", nullptr)) != nullptr; }));
    const int width = GetSystemMetrics(SM_CXSCREEN), height = GetSystemMetrics(SM_CYSCREEN);
    SetWindowPos(bar, HWND_TOPMOST, 0, height - BarSize, width, BarSize, SWP_NOACTIVATE | SWP_SHOWWINDOW);
    RECT place = {};
    EXPECT_TRUE(WaitUntil([&] { return GetWindowRect(bar, &place) && place.top == height - BarSize; }));
    RedrawWindow(GetDesktopWindow(), nullptr, nullptr, RDW_INVALIDATE | RDW_ERASE | RDW_UPDATENOW);
    return place;
}

static HWND WaitForBalloon() {
    HWND window = nullptr;
    WaitUntil([&] {
        window = FindWindowA("TarnHolveBalloonTipClass", "TarnHolveBalloonTip");
        return window && IsWindowVisible(window);
    });
    return window;
}

static void Click(HWND window) {
    PostMessageA(window, WM_LBUTTONDOWN, MK_LBUTTON, MAKELPARAM(20, 20));
    PostMessageA(window, WM_LBUTTONUP, 0, MAKELPARAM(20, 20));
}

namespace {
// A picture to draw on, its pixels as 0x00RRGGBB from the top.
class Picture {
public:
    Picture(int width, int height) : m_width(width), m_height(height), m_context(CreateCompatibleDC(nullptr)) {
        BITMAPINFO info = {};
        info.bmiHeader = {sizeof(BITMAPINFOHEADER), width, -height, 1, 32, BI_RGB, 0, 0, 0, 0, 0};
        void* bits = nullptr;
        m_bitmap = CreateDIBSection(m_context, &info, DIB_RGB_COLORS, &bits, nullptr, 0);
        m_pixels = static_cast<DWORD*>(bits);
        SelectObject(m_context, m_bitmap);
    }
    Picture(const Picture&) = delete;
    ~Picture() {
        DeleteDC(m_context);
        DeleteObject(m_bitmap);
    }
    HDC Context() const { return m_context; }
    void TakeFromScreen(int left, int top) {
        const HDC screen = GetDC(nullptr);
        BitBlt(m_context, 0, 0, m_width, m_height, screen, left, top, SRCCOPY);
        ReleaseDC(nullptr, screen);
    }
    int CountDifferences(const Picture& other) const {
        GdiFlush();
        int count = 0;
        for (int i = 0; i < m_width * m_height; ++i) {
            count += ((m_pixels[i] ^ other.m_pixels[i]) & 0xFFFFFF) != 0;
        }
        return count;
    }
    void Save(const std::string& name) const {
        CreateDirectoryA(QM_PICTURE_FOLDER, nullptr);
        std::ofstream file(QM_PICTURE_FOLDER + name + ".bmp", std::ios::binary);
        const DWORD bytes = static_cast<DWORD>(m_width * m_height) * 4;
        const BITMAPFILEHEADER head = {0x4D42, 54 + bytes, 0, 0, 54};
        const BITMAPINFOHEADER info = {sizeof(info), m_width, -m_height, 1, 32, BI_RGB, bytes, 0, 0, 0, 0};
        std::vector<DWORD> opaque(m_pixels, m_pixels + m_width * m_height);
        for (DWORD& pixel : opaque) {
            pixel |= 0xFF000000; // some viewers take the fourth byte for alpha
        }
        file.write(reinterpret_cast<const char*>(&head), sizeof(head));
        file.write(reinterpret_cast<const char*>(&info), sizeof(info));
        file.write(reinterpret_cast<const char*>(opaque.data()), bytes);
        EXPECT_TRUE(file.good());
    }

private:
    int m_width, m_height;
    HDC m_context;
    HBITMAP m_bitmap;
    DWORD* m_pixels;
};

// The place of everything, with this machine's fonts.
struct Layout {
    RECT title = {}, text = {};
    int margin, icon, iconY, closeX, closeY, width, height;
    HFONT titleFont, textFont;

    Layout(int dpi, const Look& look, const Texts& texts) {
        const auto scale = [dpi](int n) { return MulDiv(n, dpi, 96); };
        NONCLIENTMETRICSA metrics = {};
        metrics.cbSize = sizeof(metrics);
        SystemParametersInfoA(SPI_GETNONCLIENTMETRICS, sizeof(metrics), &metrics, 0);
        LOGFONTA forTitle = metrics.lfSmCaptionFont, forText = metrics.lfStatusFont;
        if (look.isFlat) {
            forTitle.lfHeight = forTitle.lfHeight * 14 / 10;
            forText.lfHeight = forText.lfHeight * 13 / 10;
            forText.lfWeight = FW_NORMAL;
        }
        forTitle.lfCharSet = forText.lfCharSet = DEFAULT_CHARSET;
        titleFont = CreateFontIndirectA(&forTitle);
        textFont = CreateFontIndirectA(&forText);
        margin = scale(12);
        icon = dpi == 96 ? 16 : 32;
        title = {margin + icon * 3 / 2, scale(6) + scale(2), 0, 0};
        const HDC context = CreateCompatibleDC(nullptr);
        SelectObject(context, titleFont);
        DrawTextA(context, texts.title, -1, &title, DT_CALCRECT | DT_NOPREFIX);
        text = {look.isFlat ? title.left : margin, title.bottom + scale(look.isFlat ? 4 : 7), 0, 0};
        SelectObject(context, textFont);
        DrawTextA(context, texts.text, -1, &text, DT_CALCRECT | DT_NOPREFIX);
        DeleteDC(context);
        width = margin + static_cast<int>(std::max(title.right + icon * 6 / 5, text.right));
        height = scale(6) + static_cast<int>(text.bottom) + 4;
        iconY = scale(6) + scale(1) + (static_cast<int>(title.bottom - title.top) - icon) / 2;
        closeX = width - icon - scale(6);
        closeY = scale(6) - scale(1);
    }
    ~Layout() {
        DeleteObject(titleFont);
        DeleteObject(textFont);
    }
    Layout(const Layout&) = delete;
};
} // namespace

static void DrawLabel(HDC context, HFONT font, COLORREF colour, const char* label, RECT rect) {
    SelectObject(context, font);
    SetTextColor(context, colour);
    DrawTextA(context, label, -1, &rect, DT_NOPREFIX);
}

static void DrawProgramsIcon(HDC context, const std::string& program, WORD id, int x, int y, int size) {
    const HMODULE module = LoadLibraryExA(program.c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE);
    const auto icon = static_cast<HICON>(LoadImageA(module, MAKEINTRESOURCEA(id), IMAGE_ICON, size, size, 0));
    EXPECT_NE(icon, nullptr) << id;
    DrawIconEx(context, x, y, icon, size, size, 0, nullptr, DI_NORMAL);
    DestroyIcon(icon);
    FreeLibrary(module);
}

// Draws what is expected: the balloon in the middle of the picture.
static void DrawExpected(const Picture& picture, const Layout& layout, const Look& look, const Texts& texts,
                         const std::string& program) {
    const HDC context = picture.Context();
    const int width = layout.width, height = layout.height;
    const RECT all = {0, 0, width + 2 * Surroundings, height + 2 * Surroundings};
    const HBRUSH desk = CreateSolidBrush(DeskColour);
    FillRect(context, &all, desk);
    SetViewportOrgEx(context, Surroundings, Surroundings, nullptr);
    const HRGN shape = CreateRoundRectRgn(0, 0, width + 1, height + 1, look.diameter, look.diameter);
    const HBRUSH fill = CreateSolidBrush(look.isFlat ? 0x1F1F1F : GetSysColor(COLOR_INFOBK));
    const HBRUSH frame = CreateSolidBrush(look.isFlat ? 0x5D5D5D : 0);
    FillRgn(context, shape, fill);
    FrameRgn(context, shape, frame, 1, 1);
    SetBkMode(context, TRANSPARENT);
    const COLORREF infoText = GetSysColor(COLOR_INFOTEXT);
    DrawLabel(context, layout.titleFont, look.isFlat ? 0xFFFFFF : infoText, texts.title, layout.title);
    DrawLabel(context, layout.textFont, look.isFlat ? 0xDCDCDC : infoText, texts.text, layout.text);
    DrawProgramsIcon(context, program, look.isFlat ? 202 : 102, layout.margin, layout.iconY, layout.icon);
    if (look.isFlat) {
        DrawProgramsIcon(context, program, 311, layout.closeX, layout.closeY, layout.icon);
    } else {
        RECT close = {layout.closeX, layout.closeY, layout.closeX + layout.icon - 1, layout.closeY + layout.icon - 1};
        DrawFrameControl(context, &close, DFC_CAPTION, DFCS_CAPTIONCLOSE | DFCS_FLAT);
    }
    SetViewportOrgEx(context, 0, 0, nullptr);
    for (const HGDIOBJ object : {HGDIOBJ(desk), HGDIOBJ(fill), HGDIOBJ(frame), HGDIOBJ(shape)}) {
        DeleteObject(object);
    }
}

// Waits until the balloon on the screen is as it should be, and keeps its picture.
static void ExpectBalloon(HWND window, const RECT& bar, int dpi, const Look& look, const Texts& texts,
                          const std::string& program, const std::string& pictureName) {
    const Layout layout(dpi, look, texts);
    const int right = static_cast<int>(bar.right) - MulDiv(32, dpi, 96);
    const int bottom = static_cast<int>(bar.top) - MulDiv(3, dpi, 96);
    RECT place = {};
    WaitUntil([&] { return GetWindowRect(window, &place) && place.left == right - layout.width; });
    EXPECT_EQ(place.left, right - layout.width);
    EXPECT_EQ(place.right, right);
    EXPECT_EQ(place.top, bottom - layout.height);
    EXPECT_EQ(place.bottom, bottom);
    const int width = layout.width + 2 * Surroundings, height = Surroundings + layout.height + MulDiv(3, dpi, 96);
    Picture expected(width, height), seen(width, height);
    DrawExpected(expected, layout, look, texts, program);
    WaitUntil([&] {
        seen.TakeFromScreen(right - layout.width - Surroundings, bottom - layout.height - Surroundings);
        return seen.CountDifferences(expected) == 0;
    });
    const std::string name = pictureName + "-" + std::to_string(dpi);
    seen.Save(name);
    EXPECT_EQ(seen.CountDifferences(expected), 0) << "pixels of " << name << " differ";
    if (seen.CountDifferences(expected) != 0) {
        expected.Save(name + "-expected");
    }
}

static void CheckLook(int dpi, const Look& look) {
    const RECT bar = PrepareDesktop();
    const std::string program = ProgramFor(look);
    const Process balloon(BalloonCommand(program, FirstTexts));
    const HWND window = WaitForBalloon();
    ASSERT_NE(window, nullptr);
    ExpectBalloon(window, bar, dpi, look, FirstTexts, program, look.name);
    Click(window);
    EXPECT_EQ(balloon.ExitCode(), 0u);
}

static void CheckLooks(int dpi) {
    for (const Look& look : {Win10Look, Win11Look, ClassicLook}) {
        CheckLook(dpi, look);
    }
}

TEST(Balloon, IsDrawnAsLaidOutAt96) {
    OnDesktop(96, CheckLooks);
}
TEST(Balloon, IsDrawnAsLaidOutAt192) {
    OnDesktop(192, CheckLooks);
}

// --- The pipe.

static HANDLE OpenPipe(const Process& balloon) {
    HANDLE pipe = INVALID_HANDLE_VALUE;
    WaitUntil([&] {
        pipe = CreateFileA("\\\\.\\pipe\\QuillmarchBalloonUpdate", GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                           SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION, nullptr);
        return pipe != INVALID_HANDLE_VALUE || balloon.HasEnded();
    });
    return pipe;
}

static std::string Record(const Texts& texts) {
    std::string bytes(1160, '\0');
    bytes.replace(0, 5, "\x60\xEA\0\0\1", 5); // a minute, the default characters
    bytes.replace(8, strlen(texts.title), texts.title);
    bytes.replace(128, strlen(texts.text), texts.text);
    return bytes;
}

static bool Send(HANDLE pipe, const std::string& bytes) {
    DWORD written = 0;
    return WriteFile(pipe, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
}

// Mostly of other lengths, at times a record, at times longer than one.
static std::string RandomMessage(std::mt19937* random) {
    const auto draw = (*random)();
    std::string bytes(draw % 8 == 0 ? 1160 : draw % 50 == 1 ? 1161 : 1 + draw % 1159, '\0');
    for (char& each : bytes) {
        each = static_cast<char>((*random)());
    }
    return bytes;
}

// Returns: how many were sent before the balloon ended, if it did.
static int SendRandomMessages(const Process& balloon, std::mt19937* random, int count) {
    HANDLE pipe = OpenPipe(balloon);
    int sent = 0;
    while (sent < count && !balloon.HasEnded()) {
        if (Send(pipe, RandomMessage(random))) {
            ++sent;
        } else { // disconnected after a message that was too long
            CloseHandle(pipe);
            pipe = OpenPipe(balloon);
        }
    }
    CloseHandle(pipe);
    return sent;
}

static void CheckPipe(int dpi) {
    constexpr Texts NewTexts = {"A title that is a good deal longer than the first", "COM42"};
    const RECT bar = PrepareDesktop();
    const std::string program = ProgramFor(Win10Look);
    std::mt19937 random(12);
    for (int sent = 0; sent < 1000 && !testing::Test::HasFailure();) {
        const DWORD startTicks = GetTickCount();
        const Process balloon(BalloonCommand(program, FirstTexts));
        const HWND window = WaitForBalloon();
        ASSERT_NE(window, nullptr);
        sent += SendRandomMessages(balloon, &random, 200);
        if (balloon.HasEnded()) { // a slow machine: no balloon outlives its minute
            EXPECT_GE(GetTickCount() - startTicks, BalloonLifeMs - 1000) << "after " << sent << " messages";
        } else {
            // Again and again: a client that this machine halts for a second is dropped with what it has written.
            const LONG width = Layout(dpi, Win10Look, NewTexts).width;
            WaitUntil([&] {
                RECT place = {};
                const HANDLE pipe = OpenPipe(balloon);
                Send(pipe, Record(NewTexts));
                CloseHandle(pipe);
                return GetWindowRect(window, &place) && place.right - place.left == width;
            });
            ExpectBalloon(window, bar, dpi, Win10Look, NewTexts, program, "updated");
            Click(window);
        }
        EXPECT_EQ(balloon.ExitCode(), 0u);
    }
}

TEST(Balloon, TakesTextsByItsPipeAndNoHarmByAThousandRandomMessages) {
    OnDesktop(96, CheckPipe);
}
