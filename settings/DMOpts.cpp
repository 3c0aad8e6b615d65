#include "settings/DMOpts.h"

#include <windows.h>

#include "base/ProductInfo.h"
#include "base/StrUtil.h"
#include "storage/RegKey.h"

const wchar_t* BoolOpts::pszRegTempKeyName = L"Temp";

BoolOpts::BoolOpts(const wchar_t* regValueName) : DMOptsLoader(&opts), pszRegValueName(regValueName)
{
    opts.Reset();
}

BoolOpts::BoolOpts(const BoolOpts& other) : DMOptsLoader(&opts), opts(other.opts), pszRegValueName(other.pszRegValueName) {}

BoolOpts& BoolOpts::operator=(const BoolOpts& other)
{
    opts.SetAll(other.opts.GetAll());
    pszRegValueName = other.pszRegValueName;
    return *this;
}

void BoolOpts::Reset() { DMOptsLoader::Reset(); }

void BoolOpts::CopyFrom(DMOptsLoader* other) { DMOptsLoader::CopyFrom(other); }

int BoolOpts::IsDifferent(DMOptsLoader* other) { return DMOptsLoader::IsDifferent(other); }

const wchar_t* BoolOpts::GetRegKeyName() { return ProductInfo::GetAppRegKeyName(); }

bool BoolOpts::BuildPath(int bTemp, wchar_t* buf, unsigned cch)
{
    const wchar_t* key = GetRegKeyName();
    if (StrIsEmpty(key))
        return false;
    if (bTemp)
        StrFormat(buf, cch, L"%s\\%s", key, pszRegTempKeyName);
    else
        StrCopy(buf, cch, key);
    return true;
}

int BoolOpts::MyLoad(int bTemp)
{
    // Every field starts at its default: a value missing from the key simply keeps it.
    Reset();
    wchar_t path[256];
    if (!BuildPath(bTemp, path, 256))
        return 0;
    RegKey key;
    if (!key.Open(path, 0))
        return 0;
    DoLoad(key);
    key.Close();
    return 1;
}

int BoolOpts::MyStore(int bTemp)
{
    wchar_t path[256];
    if (!BuildPath(bTemp, path, 256))
        return 0;
    RegKey key;
    if (!key.Open(path, 1))
        return 0;
    DoStore(key);
    // The service may read the settings the moment they are stored.
    if (!RegKey::bLogMode)
        key.Flush();
    key.Close();
    return 1;
}

int BoolOpts::Load() { return MyLoad(0); }
int BoolOpts::Store() { return MyStore(0); }
int BoolOpts::LoadTemp() { return MyLoad(1); }
int BoolOpts::StoreTemp() { return MyStore(1); }

int BoolOpts::DelTemp()
{
    RegKey key;
    if (!key.Open(GetRegKeyName(), 0))
        return 0;
    return key.DelSubKey(pszRegTempKeyName);
}

int BoolOpts::DoLoad(RegKey& key)
{
    // The flag set is taken from any four-byte value (a DWORD, or binary written by other
    // tools). A flag set stored as text or cut short keeps what Reset gave it: a one-character
    // string is four bytes too, so text types are refused outright.
    DWORD v = 0, cb = sizeof(v), type = 0;
    if (RegQueryValueExW(key.GetKey(), pszRegValueName, nullptr, &type, reinterpret_cast<BYTE*>(&v), &cb) == ERROR_SUCCESS &&
        cb == sizeof(v) && type != REG_SZ && type != REG_EXPAND_SZ && type != REG_MULTI_SZ)
        opts.SetAll(v);
    OnLoad(key);
    return 1;
}

int BoolOpts::DoStore(RegKey& key)
{
    // The record's own values first, then the flag set.
    OnStore(key);
    key.PutDword(pszRegValueName, opts.GetAll(), 1);
    return 1;
}
