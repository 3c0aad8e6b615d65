#include "settings/GPObj.h"

#include "base/ProductInfo.h"
#include "base/StrUtil.h"
#include "storage/StrList.h"

const wchar_t* GPObj::pszDelVals = L"**delvals.";
const GUID GPObj::guidRegistryExtension = {0x35378eac, 0x683f, 0x11d2, {0xa8, 0x9a, 0x00, 0xc0, 0x4f, 0xbb, 0xcf, 0xa2}};
const GUID GPObj::guidMachineAdminSnapIn = {0x0f6b957e, 0x509e, 0x11d1, {0xa7, 0xcc, 0x00, 0x00, 0xf8, 0x75, 0x71, 0xe3}};

namespace {
const CLSID kClsidGroupPolicyObject = {0xea502722, 0xa23d, 0x11d1, {0xa7, 0xd3, 0x00, 0x00, 0xf8, 0x75, 0x71, 0xe3}};
const IID kIidGroupPolicyObject = {0xea502723, 0xa23d, 0x11d1, {0xa7, 0xd3, 0x00, 0x00, 0xf8, 0x75, 0x71, 0xe3}};
// The data of a removal marker, as the Group Policy editors write it.
const wchar_t kMarkerData[] = L" ";
} // namespace

HRESULT GPObj::CreateSystemObject(IGroupPolicyObject** out)
{
    return CoCreateInstance(kClsidGroupPolicyObject, nullptr, CLSCTX_INPROC_SERVER, kIidGroupPolicyObject,
                            reinterpret_cast<void**>(out));
}

GPObj::CreateFn GPObj::pfnCreate = GPObj::CreateSystemObject;

GPObj::GPObj() : hrLast(S_OK), pGPO(nullptr)
{
    // The policy key is always the one inside the object: never the computer's own policy key.
    bAlt = 1;
}

GPObj::~GPObj() { Close(); }

void GPObj::Close()
{
    CloseRegKey();
    bAlt = 1;
    keyRoot.Close();
    if (pGPO) {
        pGPO->Release();
        pGPO = nullptr;
    }
}

int GPObj::Open(const wchar_t* path, int scope, int bLoadRegistry)
{
    Close();
    IGroupPolicyObject* obj = nullptr;
    hrLast = pfnCreate ? pfnCreate(&obj) : E_NOTIMPL;
    if (FAILED(hrLast) || !obj) {
        if (SUCCEEDED(hrLast))
            hrLast = E_NOINTERFACE;
        return 0;
    }
    pGPO = obj;
    // The interface takes a writable string; the caller's stays untouched.
    wchar_t dsPath[1024];
    if (!path || StrLen(path) >= ARRAYSIZE(dsPath)) {
        hrLast = HRESULT_FROM_WIN32(ERROR_BAD_PATHNAME);
        Close();
        return 0;
    }
    StrCopy(dsPath, path);
    hrLast = pGPO->OpenDSGPO(dsPath, bLoadRegistry ? GPO_OPEN_LOAD_REGISTRY : 0);
    if (FAILED(hrLast)) {
        Close();
        return 0;
    }
    GROUP_POLICY_OBJECT_TYPE type = GPOTypeLocal;
    if (FAILED(pGPO->GetType(&type)) || type != GPOTypeDS) {
        Close(); // hrLast keeps the success of the open: the object exists, it is just not a domain one
        return 0;
    }
    HKEY root = nullptr;
    hrLast = pGPO->GetRegistryKey(scope == ScopeMachine ? GPO_SECTION_MACHINE : GPO_SECTION_USER, &root);
    if (FAILED(hrLast) || !root) {
        if (SUCCEEDED(hrLast))
            hrLast = E_FAIL;
        Close();
        return 0;
    }
    keyRoot.Attach(root);
    key.Open(keyRoot, ProductInfo::GetLicPolKey(), 0);
    bWritable = 0;
    hrLast = S_OK;
    return 1;
}

int GPObj::Save(int scope)
{
    if (!pGPO) {
        hrLast = E_HANDLE;
        return 0;
    }
    // What was written must reach the section's file before the object writes it out.
    if (key.IsReady())
        key.Flush();
    keyRoot.Flush();
    GUID extension = guidRegistryExtension;
    GUID snapIn = guidMachineAdminSnapIn;
    hrLast = pGPO->Save(scope == ScopeMachine, TRUE, &extension, &snapIn);
    return SUCCEEDED(hrLast);
}

int GPObj::GetText(HRESULT (STDMETHODCALLTYPE IGroupPolicyObject::*get)(LPOLESTR, int), wchar_t* buf, unsigned cch)
{
    if (!buf || !cch)
        return 0;
    buf[0] = 0;
    if (!pGPO || cch > INT_MAX)
        return 0;
    hrLast = (pGPO->*get)(buf, (int)cch);
    if (FAILED(hrLast))
        buf[0] = 0;
    buf[cch - 1] = 0;
    return buf[0] != 0;
}

int GPObj::GetDisplayName(wchar_t* buf, unsigned cch) { return GetText(&IGroupPolicyObject::GetDisplayName, buf, cch); }

int GPObj::GetName(wchar_t* buf, unsigned cch) { return GetText(&IGroupPolicyObject::GetName, buf, cch); }

int GPObj::SetAllNotConfigured(int)
{
    if (!keyRoot.IsReady())
        return 0;
    CloseRegKey();
    bAlt = 1;
    // Only the product's own key goes; the vendor key above it may hold other products' policies.
    RegKey policy;
    if (!policy.Open(keyRoot, ProductInfo::GetLicPolKey(), 0))
        return 1;
    policy.DelAll();
    policy.Close();
    RegKey parent;
    const wchar_t* path = ProductInfo::GetLicPolKey();
    const wchar_t* last = wcsrchr(path, L'\\');
    wchar_t parentPath[MAX_PATH];
    StrCopyN(parentPath, ARRAYSIZE(parentPath), path, (unsigned)(last - path));
    if (parent.Open(keyRoot, parentPath, RegKey::OpWrite))
        parent.DelSubKey(last + 1);
    return 1;
}

int GPObj::IsNotConfigured()
{
    if (!keyRoot.IsReady())
        return 1;
    RegKey policy;
    return !policy.Open(keyRoot, ProductInfo::GetLicPolKey(), 0) || policy.IsKeyEmpty();
}

int GPObj::ReadyToWrite()
{
    if (key.IsReady() && bWritable)
        return 1;
    if (!keyRoot.IsReady())
        return 0;
    key.Close();
    bWritable = key.Open(keyRoot, ProductInfo::GetLicPolKey(), 1);
    return bWritable;
}

int GPObj::MakeDelName(wchar_t* buf, unsigned cch, const wchar_t* name)
{
    static const wchar_t prefix[] = L"**del.";
    if (!buf || !cch)
        return 0;
    buf[0] = 0;
    if (!name || ARRAYSIZE(prefix) - 1 + StrLen(name) >= cch)
        return 0;
    StrFormat(buf, cch, L"%s%s", prefix, name);
    return 1;
}

template <typename Write> int GPObj::SetOrMark(const wchar_t* name, int bSet, Write write)
{
    wchar_t marker[300];
    if (!name || !MakeDelName(marker, ARRAYSIZE(marker), name) || !ReadyToWrite())
        return 0;
    if (bSet) {
        if (!write())
            return 0;
        key.DelValue(marker);
        return 1;
    }
    key.DelValue(name);
    return key.PutStr(marker, kMarkerData, 1);
}

int GPObj::SetInt(int value, const wchar_t* name, int bSet)
{
    return SetOrMark(name, bSet, [&] { return Policy::SetInt(value, name, ScopeMachine); });
}

int GPObj::SetStr(const wchar_t* name, const wchar_t* text, int bSet)
{
    return SetOrMark(name, bSet, [&] { return key.PutStr(name, text ? text : L"", 1); });
}

int GPObj::SetBin(const BYTE* data, unsigned cb, const wchar_t* name, int bSet)
{
    return SetOrMark(name, bSet, [&] { return key.PutBin(name, data, cb, REG_BINARY); });
}

unsigned GPObj::GetBinSize(const wchar_t* name, int* type)
{
    if (type)
        *type = REG_NONE;
    if (!key.IsReady() || !key.FindValue(name))
        return 0;
    if (type)
        *type = (int)key.GetValueType(name);
    return key.GetBinSize(name);
}

int GPObj::GetBin(BYTE* buf, unsigned cb, const wchar_t* name)
{
    return key.IsReady() ? key.GetBin(name, buf, cb) : 0;
}

int GPObj::SetStrList(StrList& list, const wchar_t* name, int bSet)
{
    if (!name || !ReadyToWrite())
        return 0;
    RegKey sub;
    if (!sub.Open(key, name, 1))
        return 0;
    // The clients' list is emptied first whatever the state: Enabled then writes the entries,
    // Not Configured leaves it empty (the loader reads no subkey entries as an empty list).
    sub.DelAll();
    if (!sub.PutStr(pszDelVals, kMarkerData, 1))
        return 0;
    return bSet ? PutListEntries(sub, list) : 1;
}
