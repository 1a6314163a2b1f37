// The only way to Windows. Everything in src/ that needs an operation, a type or a constant of Windows includes this
// header and no other. On Windows it includes the headers of the SDK; elsewhere, and where QM_SIMULATED_WINDOWS says
// so, it includes the simulated machine, which declares the same names with the same layouts. Conditional compilation
// is only here: this header evens out what differs (format checks, lock annotations, macros that get in the way).
#pragma once

#if defined(_WIN32) && !defined(QM_SIMULATED_WINDOWS)

#if !defined(NOMINMAX)
#define NOMINMAX
#endif
#if !defined(WIN32_LEAN_AND_MEAN)
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>

#include <aclapi.h>
#include <cfgmgr32.h>
#include <commctrl.h>
#include <dbt.h>
#include <lm.h>
#include <objbase.h>
#include <sddl.h>
#include <setupapi.h>
#include <shellapi.h>
#include <shlobj.h>
#include <shlwapi.h>
#include <tlhelp32.h>
#include <uxtheme.h>
#include <winioctl.h>
#include <winsvc.h>
#include <wtsapi32.h>

// An enumerator of this header has the same name as the product's hub record.
#define UsbHub SdkUsbHub
#include <usbioctl.h>
#undef UsbHub

// Names of the SDK that would rename operations, fields or locals of the product.
#undef RegDeleteValue
#undef interface
#undef small
#undef near
#undef far

// The SDK's formats use letters that the compiler's own check does not know, and its locks carry no annotation.
#define QM_PRINTF(formatIndex, firstArgument)
#define QM_CAPABILITY(name)
#define QM_SCOPED
#define QM_GUARDED_BY(lock)
#define QM_PT_GUARDED_BY(lock)
#define QM_REQUIRES(...)
#define QM_EXCLUDES(...)
#define QM_ACQUIRE(...)
#define QM_TRY_ACQUIRE(...)
#define QM_RELEASE(...)
#define QM_ACQUIRED_BEFORE(...)
#define QM_ACQUIRED_AFTER(...)
#define QM_NO_LOCK_ANALYSIS

#else

#if !defined(QM_LOCK_ATTRIBUTE)
#if defined(__clang__)
#define QM_LOCK_ATTRIBUTE(attribute) __attribute__((attribute))
#else
#define QM_LOCK_ATTRIBUTE(attribute)
#endif
#endif
// The simulated machine annotates its critical section with this, so it must precede its headers.
#if !defined(QM_CAPABILITY)
#define QM_CAPABILITY(name) QM_LOCK_ATTRIBUTE(capability(name))
#endif

#include "simwin/win32.h"

using namespace simwin;

#define QM_PRINTF(formatIndex, firstArgument) __attribute__((format(printf, formatIndex, firstArgument)))
#undef QM_SCOPED
#undef QM_GUARDED_BY
#undef QM_PT_GUARDED_BY
#undef QM_REQUIRES
#undef QM_EXCLUDES
#undef QM_ACQUIRE
#undef QM_TRY_ACQUIRE
#undef QM_RELEASE
#undef QM_ACQUIRED_BEFORE
#undef QM_ACQUIRED_AFTER
#undef QM_NO_LOCK_ANALYSIS
#define QM_SCOPED QM_LOCK_ATTRIBUTE(scoped_lockable)
#define QM_GUARDED_BY(lock) QM_LOCK_ATTRIBUTE(guarded_by(lock))
#define QM_PT_GUARDED_BY(lock) QM_LOCK_ATTRIBUTE(pt_guarded_by(lock))
#define QM_REQUIRES(...) QM_LOCK_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define QM_EXCLUDES(...) QM_LOCK_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define QM_ACQUIRE(...) QM_LOCK_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define QM_TRY_ACQUIRE(...) QM_LOCK_ATTRIBUTE(try_acquire_capability(__VA_ARGS__))
#define QM_RELEASE(...) QM_LOCK_ATTRIBUTE(release_capability(__VA_ARGS__))
#define QM_ACQUIRED_BEFORE(...) QM_LOCK_ATTRIBUTE(acquired_before(__VA_ARGS__))
#define QM_ACQUIRED_AFTER(...) QM_LOCK_ATTRIBUTE(acquired_after(__VA_ARGS__))
#define QM_NO_LOCK_ANALYSIS QM_LOCK_ATTRIBUTE(no_thread_safety_analysis)

#endif
