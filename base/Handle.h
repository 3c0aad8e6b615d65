// Owners of Windows handles: one owner per handle kind, never copied, closed by the destructor.
// A close never overwrites the reason of an earlier failure: the last-error value is kept.
#pragma once
#include <windows.h>

// Closes h (if it is a real handle) while keeping the caller's last-error value.
inline void CloseHandleKeepError(HANDLE h)
{
    if (h && h != INVALID_HANDLE_VALUE) {
        DWORD err = GetLastError();
        CloseHandle(h);
        SetLastError(err);
    }
}

// A kernel handle: events, processes, threads, files, tokens. Null and INVALID_HANDLE_VALUE
// both mean "no handle", so file and event results can be stored alike.
class Handle {
public:
    Handle() = default;
    explicit Handle(HANDLE h) : h_(h) {}
    ~Handle() { Close(); }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    Handle(Handle&& o) noexcept : h_(o.Detach()) {}
    Handle& operator=(Handle&& o) noexcept
    {
        if (this != &o)
            Attach(o.Detach());
        return *this;
    }

    bool IsValid() const { return h_ && h_ != INVALID_HANDLE_VALUE; }
    HANDLE Get() const { return h_; }
    operator HANDLE() const { return h_; }
    void Attach(HANDLE h)
    {
        Close();
        h_ = h;
    }
    HANDLE Detach()
    {
        HANDLE h = h_;
        h_ = nullptr;
        return h;
    }
    void Close()
    {
        CloseHandleKeepError(h_);
        h_ = nullptr;
    }

private:
    HANDLE h_ = nullptr;
};

// Memory from LocalAlloc (FormatMessageW, ConvertStringSecurityDescriptor...).
template <class T> class LocalPtr {
public:
    LocalPtr() = default;
    ~LocalPtr() { Free(); }
    LocalPtr(const LocalPtr&) = delete;
    LocalPtr& operator=(const LocalPtr&) = delete;
    T* Get() const { return p_; }
    T** operator&() { Free(); return &p_; }
    T* operator->() const { return p_; }
    void Free()
    {
        if (p_) {
            DWORD err = GetLastError();
            LocalFree((HLOCAL)p_);
            SetLastError(err);
            p_ = nullptr;
        }
    }

private:
    T* p_ = nullptr;
};
