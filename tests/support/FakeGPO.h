// An in-process Group Policy object for tests: its machine section is a registry key of the test
// (under HKCU), it records its saves, and every call's result can be made to fail. Point
// GPObj::pfnCreate at CreateFake.
#pragma once
#include <windows.h>

#include <prsht.h>

#include <gpedit.h>

#include <string>
#include <vector>

#include "base/StrUtil.h"

namespace vxtest {

const wchar_t kName[] = L"{6AC1786C-016F-11D2-945F-00C04FB984F9}";
struct FakeState {
    std::wstring section; // HKCU-relative key of the machine section
    HRESULT hrCreate = S_OK, hrOpen = S_OK, hrKey = S_OK, hrSave = S_OK;
    GROUP_POLICY_OBJECT_TYPE type = GPOTypeDS;
    DWORD openFlags = 0;
    bool badKey = false; // the section's key is a handle that nothing can be written through
    std::vector<std::wstring> saves; // "machine,add,extension,snap-in"
    LONG live = 0;                   // objects not yet released
};
inline FakeState g_state;

inline std::wstring Guid(const GUID* g)
{
    wchar_t buf[64] = L"null";
    return g && StringFromGUID2(*g, buf, 64), buf;
}

#define NOT_USED(name, ...) STDMETHODIMP name(__VA_ARGS__) override { return E_NOTIMPL; }
class FakeGPO final : public IGroupPolicyObject {
public:
    FakeGPO() { InterlockedIncrement(&g_state.live); }
    STDMETHODIMP QueryInterface(REFIID, void** out) override { return *out = this, AddRef(), S_OK; }
    STDMETHODIMP_(ULONG) AddRef() override { return (ULONG)InterlockedIncrement(&refs); }
    STDMETHODIMP_(ULONG) Release() override
    {
        LONG n = InterlockedDecrement(&refs);
        if (!n)
            InterlockedDecrement(&g_state.live), delete this;
        return (ULONG)n;
    }
    STDMETHODIMP OpenDSGPO(LPOLESTR, DWORD flags) override { return g_state.openFlags = flags, g_state.hrOpen; }
    STDMETHODIMP Save(BOOL machine, BOOL add, GUID* ext, GUID* snap) override
    {
        g_state.saves.push_back(std::to_wstring(machine) + L"," + std::to_wstring(add) + L"," + Guid(ext) + L"," + Guid(snap));
        return g_state.hrSave;
    }
    STDMETHODIMP GetName(LPOLESTR buf, int cch) override { return StrCopy(buf, (unsigned)cch, kName), S_OK; }
    STDMETHODIMP GetDisplayName(LPOLESTR buf, int cch) override { return StrCopy(buf, (unsigned)cch, L"Branch offices"), S_OK; }
    STDMETHODIMP GetRegistryKey(DWORD section, HKEY* key) override
    {
        if (FAILED(g_state.hrKey) || section != GPO_SECTION_MACHINE)
            return FAILED(g_state.hrKey) ? g_state.hrKey : E_INVALIDARG;
        if (g_state.badKey)
            return *key = (HKEY)(ULONG_PTR)0x7ffffff0, S_OK;
        return HRESULT_FROM_WIN32(RegCreateKeyExW(HKEY_CURRENT_USER, g_state.section.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS,
                                                  nullptr, key, nullptr));
    }
    STDMETHODIMP GetType(GROUP_POLICY_OBJECT_TYPE* type) override { return *type = g_state.type, S_OK; }
    NOT_USED(New, LPOLESTR, LPOLESTR, DWORD)
    NOT_USED(OpenLocalMachineGPO, DWORD)
    NOT_USED(OpenRemoteMachineGPO, LPOLESTR, DWORD)
    NOT_USED(Delete)
    NOT_USED(SetDisplayName, LPOLESTR)
    NOT_USED(GetPath, LPOLESTR, int)
    NOT_USED(GetDSPath, DWORD, LPOLESTR, int)
    NOT_USED(GetFileSysPath, DWORD, LPOLESTR, int)
    NOT_USED(GetOptions, DWORD*)
    NOT_USED(SetOptions, DWORD, DWORD)
    NOT_USED(GetMachineName, LPOLESTR, int)
    NOT_USED(GetPropertySheetPages, HPROPSHEETPAGE**, UINT*)

private:
    LONG refs = 1;
};

inline HRESULT CreateFake(IGroupPolicyObject** out)
{
    *out = SUCCEEDED(g_state.hrCreate) ? new FakeGPO : nullptr;
    return g_state.hrCreate;
}
} // namespace vxtest
