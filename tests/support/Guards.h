// Guards for process-wide state that tests change; each restores it on destruction, so a test
// that stops on a failed ASSERT leaves the next test what it expects. Declare them after the
// ScopedTestKey they point at, so the key outlives the redirection.
#pragma once
#include <windows.h>

#include <string>

#include "base/ProductInfo.h"
#include "base/Resources.h"

namespace vxtest {

#define VX_NO_COPY(T) T(const T&) = delete; T& operator=(const T&) = delete

// Points the product's settings at path. pushed() is 0 when the push was refused (nesting limit).
class ScopedAppRootKey {
public:
    explicit ScopedAppRootKey(const std::wstring& path) : pushed_(ProductInfo::PushAppRootKey(path.c_str())) {}
    ~ScopedAppRootKey() { if (pushed_) ProductInfo::PopAppRootKey(); }
    VX_NO_COPY(ScopedAppRootKey);
    int pushed() const { return pushed_; }

private:
    int pushed_;
};

// Redirects the machine and user policy keys; the real keys are back on destruction.
class ScopedPolicyKeys {
public:
    ScopedPolicyKeys(const std::wstring& machine, const std::wstring& user)
    {
        ProductInfo::SetLicPolOverride(machine.c_str(), user.c_str());
    }
    ~ScopedPolicyKeys() { ProductInfo::SetLicPolOverride(nullptr, nullptr); }
    VX_NO_COPY(ScopedPolicyKeys);
};

// The module the product takes its strings from. Given a file name the guard loads (and later
// frees) it, and module() is null when it did not load; given a module it only points at it.
class ScopedResourceModule {
public:
    explicit ScopedResourceModule(const wchar_t* dll) : owned_(LoadLibraryW(dll)), saved_(GetResourceModule())
    {
        if (owned_)
            SetResourceModule(owned_);
    }
    explicit ScopedResourceModule(HINSTANCE module) : owned_(nullptr), saved_(GetResourceModule())
    {
        SetResourceModule(module);
    }
    ~ScopedResourceModule()
    {
        SetResourceModule(saved_);
        if (owned_)
            FreeLibrary(owned_);
    }
    VX_NO_COPY(ScopedResourceModule);
    HMODULE module() const { return owned_; }

private:
    HMODULE owned_;
    HINSTANCE saved_;
};

// A variable (a seam's function pointer, a table) saved, optionally set, and put back.
template <class T> class ScopedValue {
public:
    explicit ScopedValue(T& var) : var_(var), saved_(var) {}
    ScopedValue(T& var, const T& value) : var_(var), saved_(var) { var_ = value; }
    ~ScopedValue() { var_ = saved_; }
    VX_NO_COPY(ScopedValue);
    const T& saved() const { return saved_; }

private:
    T& var_;
    T saved_;
};

} // namespace vxtest
