// The base of every settings record: a 32-bit set of on/off flags (DMOpts), the notion of
// loading and storing one (DMOptsLoader), and the registry-backed loader (BoolOpts) that keeps
// the flag set in one DWORD value of the record's key. A derived record declares only its
// fields, its defaults (Reset) and its two hooks (OnLoad, OnStore); opening, creating, flushing
// and closing the key, the "Temp" staging copy and the flag set are handled here.
#pragma once

class RegKey;

class DMOpts {
public:
    DMOpts() : dwAll(0) {}
    DMOpts(const DMOpts& other) : dwAll(other.dwAll) {}
    DMOpts& operator=(const DMOpts& other)
    {
        CopyFrom(const_cast<DMOpts*>(&other));
        return *this;
    }

    virtual void Reset() { dwAll = 0; }
    virtual void CopyFrom(DMOpts* other) { dwAll = other ? other->dwAll : 0; }
    virtual int IsDifferent(DMOpts* other) { return other ? dwAll != other->dwAll : 1; }
    virtual ~DMOpts() {}

    operator unsigned int() const { return dwAll; }
    unsigned int GetAll() const { return dwAll; }
    void SetAll(unsigned int all) { dwAll = all; }
    // For code that binds a control or a registry entry directly to the flag set.
    unsigned int* GetPtrAll() { return &dwAll; }

    int IsOn(unsigned int mask) const { return (dwAll & mask) != 0; }
    void Set(unsigned int mask, int on) { dwAll = on ? (dwAll | mask) : (dwAll & ~mask); }
    void Get(unsigned int mask, int& out) const { out = IsOn(mask); }
    // Replaces exactly the bits of mask with those of values.
    void SetBits(unsigned int mask, unsigned int values) { dwAll = (dwAll & ~mask) | (values & mask); }
    unsigned int GetBits(unsigned int mask) const { return dwAll & mask; }

    // The flag set of a record that may not exist: 0 for none.
    static unsigned int GetAllOf(const DMOpts* p) { return p ? p->dwAll : 0; }

protected:
    unsigned int dwAll;
};

class DMOptsLoader {
public:
    explicit DMOptsLoader(DMOpts* opts) : pOpts(opts) {}
    DMOptsLoader(const DMOptsLoader&) = delete;
    DMOptsLoader& operator=(const DMOptsLoader&) = delete;

    virtual int Load() = 0;
    virtual int Store() = 0;
    virtual void Reset() { pOpts->Reset(); }
    virtual void CopyFrom(DMOptsLoader* other) { pOpts->CopyFrom(other ? other->pOpts : nullptr); }
    virtual int IsDifferent(DMOptsLoader* other) { return pOpts->IsDifferent(other ? other->pOpts : nullptr); }
    virtual ~DMOptsLoader() {}

    DMOpts* GetOpts() const { return pOpts; }
    operator unsigned int() const { return DMOpts::GetAllOf(pOpts); }
    unsigned int GetAll() const { return pOpts->GetAll(); }
    void SetAll(unsigned int all) { pOpts->SetAll(all); }
    unsigned int* GetPtrAll() { return pOpts->GetPtrAll(); }
    int IsOn(unsigned int mask) const { return pOpts->IsOn(mask); }
    void Set(unsigned int mask, int on) { pOpts->Set(mask, on); }
    void Get(unsigned int mask, int& out) const { pOpts->Get(mask, out); }
    void SetBits(unsigned int mask, unsigned int values) { pOpts->SetBits(mask, values); }
    unsigned int GetBits(unsigned int mask) const { return pOpts->GetBits(mask); }

protected:
    DMOpts* pOpts; // not owned
};

class BoolOpts : public DMOptsLoader {
public:
    explicit BoolOpts(const wchar_t* regValueName);
    // A copy points at its own flag set, never at the source's.
    BoolOpts(const BoolOpts& other);
    BoolOpts& operator=(const BoolOpts& other);

    int Load() override;
    int Store() override;
    void Reset() override;
    void CopyFrom(DMOptsLoader* other) override;
    int IsDifferent(DMOptsLoader* other) override;
    virtual int DoLoad(RegKey& key);
    virtual int DoStore(RegKey& key);
    virtual void OnLoad(RegKey&) {}
    virtual void OnStore(RegKey&) {}
    virtual const wchar_t* GetRegKeyName();

    // The staging copy beside the live record: the "Temp" subkey of the record's key.
    int LoadTemp();
    int StoreTemp();
    int DelTemp();

    const wchar_t* GetRegValueName() const { return pszRegValueName; }
    void SetRegValueName(const wchar_t* name) { pszRegValueName = name; }
    static const wchar_t* GetTempSubKey() { return pszRegTempKeyName; }

    static const wchar_t* pszRegTempKeyName;

protected:
    int MyLoad(int bTemp);
    int MyStore(int bTemp);

    DMOpts opts;
    const wchar_t* pszRegValueName; // not owned

private:
    // The record's key path, or its "Temp" subkey; false when the path does not fit.
    bool BuildPath(int bTemp, wchar_t* buf, unsigned cch);
};
