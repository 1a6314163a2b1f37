// Owners of drawing objects: each lives as long as the scope that holds it, so that repeated drawing leaks nothing.
// Thread: the balloon thread.
#pragma once

#include "platform/win32.h"

// A brush, region, font or bitmap.
class OwnedGdiObject {
public:
    explicit OwnedGdiObject(HGDIOBJ object) : m_object(object) {}
    ~OwnedGdiObject() {
        if (m_object != nullptr) {
            DeleteObject(m_object);
        }
    }
    OwnedGdiObject(const OwnedGdiObject&) = delete;
    OwnedGdiObject& operator=(const OwnedGdiObject&) = delete;
    HGDIOBJ Get() const { return m_object; }
    explicit operator bool() const { return m_object != nullptr; }

private:
    HGDIOBJ m_object;
};

// A context in memory.
class OwnedContext {
public:
    explicit OwnedContext(HDC context) : m_context(context) {}
    ~OwnedContext() { DeleteDC(m_context); }
    OwnedContext(const OwnedContext&) = delete;
    OwnedContext& operator=(const OwnedContext&) = delete;
    HDC Get() const { return m_context; }

private:
    HDC m_context;
};

// An object that is selected for the length of the scope.
class SelectedObject {
public:
    SelectedObject(HDC context, HGDIOBJ object) : m_context(context), m_old(SelectObject(context, object)) {}
    ~SelectedObject() {
        if (m_old != nullptr) {
            SelectObject(m_context, m_old);
        }
    }
    SelectedObject(const SelectedObject&) = delete;
    SelectedObject& operator=(const SelectedObject&) = delete;

private:
    HDC m_context;
    HGDIOBJ m_old;
};

// A bitmap in memory to draw on. If memory is short, Context is null and the caller draws on the screen.
class MemoryCanvas {
public:
    MemoryCanvas(HDC screen, LONG width, LONG height) : m_context(CreateCompatibleDC(screen)) {
        if (m_context == nullptr) {
            return;
        }
        m_bitmap = CreateCompatibleBitmap(screen, width, height);
        if (m_bitmap == nullptr) {
            DeleteDC(m_context);
            m_context = nullptr;
            return;
        }
        m_old = SelectObject(m_context, m_bitmap);
    }
    ~MemoryCanvas() {
        if (m_context == nullptr) {
            return;
        }
        SelectObject(m_context, m_old);
        DeleteObject(m_bitmap);
        DeleteDC(m_context);
    }
    MemoryCanvas(const MemoryCanvas&) = delete;
    MemoryCanvas& operator=(const MemoryCanvas&) = delete;
    HDC Context() const { return m_context; }

private:
    HDC m_context;
    HBITMAP m_bitmap = nullptr;
    HGDIOBJ m_old = nullptr;
};
