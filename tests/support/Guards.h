// Guards for process-wide state that tests change: the settings root key, the policy keys, the
// resource module and replaceable function pointers. Each restores the state on destruction, so
// a test that stops early on a failed ASSERT (or a fixture whose SetUp fails) leaves the next
// test the state it expects. Declare them after the ScopedTestKey they point at, so the key
// outlives the redirection.
#pragma once
#include <windows.h>

#include <string>

#include "base/ProductInfo.h"
#include "base/Resources.h"

namespace vxtest {

// Points the product's settings at path (PushAppRootKey) and pops it again. pushed() is 0 when
// the push was refused (the nesting limit), in which case nothing is popped either.
class ScopedAppRootKey {
public:
    explicit ScopedAppRootKey(const std::wstring& path) : pushed_(ProductInfo::PushAppRootKey(path.c_str())) {}
    ~ScopedAppRootKey()
    {
        if (pushed_)
            ProductInfo::PopAppRootKey();
    }
    ScopedAppRootKey(const ScopedAppRootKey&) = delete;
    ScopedAppRootKey& operator=(const ScopedAppRootKey&) = delete;
    int pushed() const { return pushed_; }

private:
    int pushed_;
};

// Redirects the machine and user policy keys; the real keys are back on destruction (tests
// always start from them).
class ScopedPolicyKeys {
public:
    ScopedPolicyKeys(const std::wstring& machine, const std::wstring& user)
    {
        ProductInfo::SetLicPolOverride(machine.c_str(), user.c_str());
    }
    ~ScopedPolicyKeys() { ProductInfo::SetLicPolOverride(nullptr, nullptr); }
    ScopedPolicyKeys(const ScopedPolicyKeys&) = delete;
    ScopedPolicyKeys& operator=(const ScopedPolicyKeys&) = delete;
};

// The module the product takes its strings from, for the guard's lifetime. Given a file name the
// guard loads the library and frees it afterwards (module() is null when it did not load, and
// the resource module is then left alone); given a module it only points at it.
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
    ScopedResourceModule(const ScopedResourceModule&) = delete;
    ScopedResourceModule& operator=(const ScopedResourceModule&) = delete;
    HMODULE module() const { return owned_; }

private:
    HMODULE owned_;
    HINSTANCE saved_;
};

// A variable (a seam's function pointer, a function table) saved on construction, optionally
// set, and put back on destruction.
template <class T> class ScopedValue {
public:
    explicit ScopedValue(T& var) : var_(var), saved_(var) {}
    ScopedValue(T& var, const T& value) : var_(var), saved_(var) { var_ = value; }
    ~ScopedValue() { var_ = saved_; }
    ScopedValue(const ScopedValue&) = delete;
    ScopedValue& operator=(const ScopedValue&) = delete;
    const T& saved() const { return saved_; }

private:
    T& var_;
    T saved_;
};

} // namespace vxtest
