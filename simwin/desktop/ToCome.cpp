// Operations that are declared and still to come: each stops the run by name.
#include "simwin/drawing/api.h"
#include "simwin/pipes/api.h"

#include "simwin/kernel/Call.h"

namespace simwin {

BOOL DestroyWindow(HWND) {
    SIM_CALL("DestroyWindow", "");
    machine::NotModelled("DestroyWindow", "this operation");
}

BOOL EnumWindows(WNDENUMPROC, LPARAM) {
    SIM_CALL("EnumWindows", "");
    machine::NotModelled("EnumWindows", "this operation");
}

BOOL IsWindow(HWND) {
    SIM_CALL("IsWindow", "");
    machine::NotModelled("IsWindow", "this operation");
}

BOOL IsWindowVisible(HWND) {
    SIM_CALL("IsWindowVisible", "");
    machine::NotModelled("IsWindowVisible", "this operation");
}

DWORD GetWindowThreadProcessId(HWND, LPDWORD) {
    SIM_CALL("GetWindowThreadProcessId", "");
    machine::NotModelled("GetWindowThreadProcessId", "this operation");
}

int GetClassNameA(HWND, LPSTR, int) {
    SIM_CALL("GetClassNameA", "");
    machine::NotModelled("GetClassNameA", "this operation");
}

LONG GetWindowLongA(HWND, int) {
    SIM_CALL("GetWindowLongA", "");
    machine::NotModelled("GetWindowLongA", "this operation");
}

BOOL SetWindowPos(HWND, HWND, int, int, int, int, UINT) {
    SIM_CALL("SetWindowPos", "");
    machine::NotModelled("SetWindowPos", "this operation");
}

HWND WindowFromPoint(POINT) {
    SIM_CALL("WindowFromPoint", "");
    machine::NotModelled("WindowFromPoint", "this operation");
}

BOOL ValidateRect(HWND, const RECT*) {
    SIM_CALL("ValidateRect", "");
    machine::NotModelled("ValidateRect", "this operation");
}

BOOL PostMessageA(HWND, UINT, WPARAM, LPARAM) {
    SIM_CALL("PostMessageA", "");
    machine::NotModelled("PostMessageA", "this operation");
}

void PostQuitMessage(int) {
    SIM_CALL("PostQuitMessage", "");
    machine::NotModelled("PostQuitMessage", "this operation");
}

LRESULT SendMessageA(HWND, UINT, WPARAM, LPARAM) {
    SIM_CALL("SendMessageA", "");
    machine::NotModelled("SendMessageA", "this operation");
}

UINT_PTR SetTimer(HWND, UINT_PTR, UINT, TIMERPROC) {
    SIM_CALL("SetTimer", "");
    machine::NotModelled("SetTimer", "this operation");
}

BOOL KillTimer(HWND, UINT_PTR) {
    SIM_CALL("KillTimer", "");
    machine::NotModelled("KillTimer", "this operation");
}

BOOL SetForegroundWindow(HWND) {
    SIM_CALL("SetForegroundWindow", "");
    machine::NotModelled("SetForegroundWindow", "this operation");
}

BOOL AttachThreadInput(DWORD, DWORD, BOOL) {
    SIM_CALL("AttachThreadInput", "");
    machine::NotModelled("AttachThreadInput", "this operation");
}

void keybd_event(BYTE, BYTE, DWORD, ULONG_PTR) {
    SIM_CALL("keybd_event", "");
    machine::NotModelled("keybd_event", "this operation");
}

void mouse_event(DWORD, DWORD, DWORD, DWORD, ULONG_PTR) {
    SIM_CALL("mouse_event", "");
    machine::NotModelled("mouse_event", "this operation");
}

BOOL GetCursorPos(LPPOINT) {
    SIM_CALL("GetCursorPos", "");
    machine::NotModelled("GetCursorPos", "this operation");
}

int GetSystemMetrics(int) {
    SIM_CALL("GetSystemMetrics", "");
    machine::NotModelled("GetSystemMetrics", "this operation");
}

COLORREF GetSysColor(int) {
    SIM_CALL("GetSysColor", "");
    machine::NotModelled("GetSysColor", "this operation");
}

BOOL SystemParametersInfoA(UINT, UINT, PVOID, UINT) {
    SIM_CALL("SystemParametersInfoA", "");
    machine::NotModelled("SystemParametersInfoA", "this operation");
}

HDC CreateCompatibleDC(HDC) {
    SIM_CALL("CreateCompatibleDC", "");
    machine::NotModelled("CreateCompatibleDC", "this operation");
}

BOOL DeleteDC(HDC) {
    SIM_CALL("DeleteDC", "");
    machine::NotModelled("DeleteDC", "this operation");
}

HBITMAP CreateCompatibleBitmap(HDC, int, int) {
    SIM_CALL("CreateCompatibleBitmap", "");
    machine::NotModelled("CreateCompatibleBitmap", "this operation");
}

HGDIOBJ SelectObject(HDC, HGDIOBJ) {
    SIM_CALL("SelectObject", "");
    machine::NotModelled("SelectObject", "this operation");
}

BOOL DeleteObject(HGDIOBJ) {
    SIM_CALL("DeleteObject", "");
    machine::NotModelled("DeleteObject", "this operation");
}

HGDIOBJ GetStockObject(int) {
    SIM_CALL("GetStockObject", "");
    machine::NotModelled("GetStockObject", "this operation");
}

HBRUSH CreateSolidBrush(COLORREF) {
    SIM_CALL("CreateSolidBrush", "");
    machine::NotModelled("CreateSolidBrush", "this operation");
}

COLORREF SetTextColor(HDC, COLORREF) {
    SIM_CALL("SetTextColor", "");
    machine::NotModelled("SetTextColor", "this operation");
}

COLORREF SetBkColor(HDC, COLORREF) {
    SIM_CALL("SetBkColor", "");
    machine::NotModelled("SetBkColor", "this operation");
}

int SetBkMode(HDC, int) {
    SIM_CALL("SetBkMode", "");
    machine::NotModelled("SetBkMode", "this operation");
}

UINT SetTextAlign(HDC, UINT) {
    SIM_CALL("SetTextAlign", "");
    machine::NotModelled("SetTextAlign", "this operation");
}

DWORD SetLayout(HDC, DWORD) {
    SIM_CALL("SetLayout", "");
    machine::NotModelled("SetLayout", "this operation");
}

BOOL SetProcessDefaultLayout(DWORD) {
    SIM_CALL("SetProcessDefaultLayout", "");
    machine::NotModelled("SetProcessDefaultLayout", "this operation");
}

BOOL BitBlt(HDC, int, int, int, int, HDC, int, int, DWORD) {
    SIM_CALL("BitBlt", "");
    machine::NotModelled("BitBlt", "this operation");
}

BOOL RoundRect(HDC, int, int, int, int, int, int) {
    SIM_CALL("RoundRect", "");
    machine::NotModelled("RoundRect", "this operation");
}

HRGN CreateRoundRectRgn(int, int, int, int, int, int) {
    SIM_CALL("CreateRoundRectRgn", "");
    machine::NotModelled("CreateRoundRectRgn", "this operation");
}

BOOL FrameRgn(HDC, HRGN, HBRUSH, int, int) {
    SIM_CALL("FrameRgn", "");
    machine::NotModelled("FrameRgn", "this operation");
}

int SetWindowRgn(HWND, HRGN, BOOL) {
    SIM_CALL("SetWindowRgn", "");
    machine::NotModelled("SetWindowRgn", "this operation");
}

HFONT CreateFontIndirectA(const LOGFONTA*) {
    SIM_CALL("CreateFontIndirectA", "");
    machine::NotModelled("CreateFontIndirectA", "this operation");
}

int DrawTextA(HDC, LPCSTR, int, LPRECT, UINT) {
    SIM_CALL("DrawTextA", "");
    machine::NotModelled("DrawTextA", "this operation");
}

HANDLE LoadImageA(HINSTANCE, LPCSTR, UINT, int, int, UINT) {
    SIM_CALL("LoadImageA", "");
    machine::NotModelled("LoadImageA", "this operation");
}

BOOL DestroyIcon(HICON) {
    SIM_CALL("DestroyIcon", "");
    machine::NotModelled("DestroyIcon", "this operation");
}

BOOL DrawIconEx(HDC, int, int, HICON, int, int, UINT, HBRUSH, UINT) {
    SIM_CALL("DrawIconEx", "");
    machine::NotModelled("DrawIconEx", "this operation");
}

BOOL DrawFrameControl(HDC, LPRECT, UINT, UINT) {
    SIM_CALL("DrawFrameControl", "");
    machine::NotModelled("DrawFrameControl", "this operation");
}

BOOL UpdateLayeredWindow(HWND, HDC, POINT*, SIZE*, HDC, POINT*, COLORREF, BLENDFUNCTION*, DWORD) {
    SIM_CALL("UpdateLayeredWindow", "");
    machine::NotModelled("UpdateLayeredWindow", "this operation");
}

BOOL SetLayeredWindowAttributes(HWND, COLORREF, BYTE, DWORD) {
    SIM_CALL("SetLayeredWindowAttributes", "");
    machine::NotModelled("SetLayeredWindowAttributes", "this operation");
}

HANDLE CreateNamedPipeA(LPCSTR, DWORD, DWORD, DWORD, DWORD, DWORD, DWORD, LPSECURITY_ATTRIBUTES) {
    SIM_CALL("CreateNamedPipeA", "");
    machine::NotModelled("CreateNamedPipeA", "this operation");
}

BOOL ConnectNamedPipe(HANDLE, LPOVERLAPPED) {
    SIM_CALL("ConnectNamedPipe", "");
    machine::NotModelled("ConnectNamedPipe", "this operation");
}

BOOL DisconnectNamedPipe(HANDLE) {
    SIM_CALL("DisconnectNamedPipe", "");
    machine::NotModelled("DisconnectNamedPipe", "this operation");
}

BOOL PeekNamedPipe(HANDLE, LPVOID, DWORD, LPDWORD, LPDWORD, LPDWORD) {
    SIM_CALL("PeekNamedPipe", "");
    machine::NotModelled("PeekNamedPipe", "this operation");
}

BOOL FlushFileBuffers(HANDLE) {
    SIM_CALL("FlushFileBuffers", "");
    machine::NotModelled("FlushFileBuffers", "this operation");
}

DWORD GetSecurityInfo(HANDLE, SE_OBJECT_TYPE, SECURITY_INFORMATION, PSID*, PSID*, PACL*, PACL*, PSECURITY_DESCRIPTOR*) {
    SIM_CALL("GetSecurityInfo", "");
    machine::NotModelled("GetSecurityInfo", "this operation");
}

} // namespace simwin
