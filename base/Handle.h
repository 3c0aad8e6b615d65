// Owners of Windows handles and system-allocated buffers: one move-only owner template, with a
// small traits class per handle kind that says what "no handle" is and how the handle is
// released. The destructor releases; a release never overwrites the reason of an earlier failure,
// because the caller's last-error value is kept across it.
//
// The kinds that need a library of their own define their traits beside the code that links it:
// the Terminal Services and network-account buffers in engine/, the GDI objects in ui/.
#pragma once
#include <windows.h>

#include <objbase.h>

#include <new>

template <class T, class Traits> class Owner {
public:
    Owner() = default;
    explicit Owner(T h) : h_(h) {}
    ~Owner() { Close(); }
    Owner(const Owner&) = delete;
    Owner& operator=(const Owner&) = delete;
    Owner(Owner&& o) noexcept : h_(o.Detach()) {}
    Owner& operator=(Owner&& o) noexcept
    {
        if (this != &o)
            Attach(o.Detach());
        return *this;
    }

    bool IsValid() const { return Traits::IsValid(h_); }
    explicit operator bool() const { return IsValid(); }
    T Get() const { return h_; }
    // Takes h over, releasing the handle held before.
    void Attach(T h)
    {
        Close();
        h_ = h;
    }
    T Detach()
    {
        T h = h_;
        h_ = Traits::Empty();
        return h;
    }
    // For functions that hand a new handle back through a pointer: the one held before is
    // released first.
    T* Receive()
    {
        Close();
        return &h_;
    }
    void Close()
    {
        if (Traits::IsValid(h_)) {
            DWORD err = GetLastError();
            Traits::Release(h_);
            SetLastError(err);
        }
        h_ = Traits::Empty();
    }

private:
    T h_ = Traits::Empty();
};

// Traits for handles whose only empty value is null.
template <class T> struct NullEmptyTraits {
    static T Empty() { return nullptr; }
    static bool IsValid(T h) { return h != nullptr; }
};

// Kernel handles: events, processes, threads, files, tokens. Null and INVALID_HANDLE_VALUE both
// mean "no handle", so file and event results can be stored alike.
struct KernelHandleTraits : NullEmptyTraits<HANDLE> {
    static bool IsValid(HANDLE h) { return h && h != INVALID_HANDLE_VALUE; }
    static void Release(HANDLE h) { CloseHandle(h); }
};
struct RegKeyTraits : NullEmptyTraits<HKEY> {
    static void Release(HKEY h) { RegCloseKey(h); }
};
struct ServiceHandleTraits : NullEmptyTraits<SC_HANDLE> {
    static void Release(SC_HANDLE h) { CloseServiceHandle(h); }
};
struct ModuleTraits : NullEmptyTraits<HMODULE> {
    static void Release(HMODULE h) { FreeLibrary(h); }
};
template <class T> struct LocalMemoryTraits : NullEmptyTraits<T*> {
    static void Release(T* p) { LocalFree((HLOCAL)p); }
};
template <class T> struct CoTaskMemoryTraits : NullEmptyTraits<T*> {
    static void Release(T* p) { CoTaskMemFree(p); }
};

typedef Owner<HANDLE, KernelHandleTraits> Handle;
typedef Owner<HKEY, RegKeyTraits> RegKeyHandle;
typedef Owner<SC_HANDLE, ServiceHandleTraits> ServiceHandle;
typedef Owner<HMODULE, ModuleTraits> ModuleHandle;
// Memory from LocalAlloc (FormatMessageW, ConvertStringSecurityDescriptor...).
template <class T> using LocalPtr = Owner<T*, LocalMemoryTraits<T>>;
// Memory from CoTaskMemAlloc (shell item lists, COM strings); the user links ole32.
template <class T> using CoTaskPtr = Owner<T*, CoTaskMemoryTraits<T>>;

// Closes h (if it is a real handle) while keeping the caller's last-error value.
inline void CloseHandleKeepError(HANDLE h) { Handle(h).Close(); }

// A heap buffer of n elements owned for one scope; p is null when the memory could not be had.
template <class T> struct HeapBuf {
    T* p;
    explicit HeapBuf(size_t n) : p(new (std::nothrow) T[n ? n : 1]) {}
    ~HeapBuf() { delete[] p; }
    HeapBuf(const HeapBuf&) = delete;
    HeapBuf& operator=(const HeapBuf&) = delete;
};
