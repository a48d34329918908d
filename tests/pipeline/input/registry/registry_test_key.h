#pragma once

#include "pipeline/input/registry/registry_key_handle.h"
#include "util/text/str.h"

#include <gtest/gtest.h>

namespace velmox {

/// A key of its own for one test, below the current user's software; removed with all that is in it.
class RegistryTestKey
{
public:
    RegistryTestKey()
    {
        RegDeleteTreeW(HKEY_CURRENT_USER, asWide(path_));
        create(u"");
    }
    ~RegistryTestKey() { RegDeleteTreeW(HKEY_CURRENT_USER, asWide(path_)); }

    /// Below HKEY_CURRENT_USER.
    const WideStr &path() const { return path_; }
    WideStr below(const char16_t *subKey) const
    {
        WideStr full = path_;
        if (*subKey != u'\0') {
            full.append(u"\\").append(subKey);
        }
        return full;
    }

    RegistryKeyHandle create(const char16_t *subKey, DWORD options = 0) const
    {
        HKEY key = nullptr;
        const LSTATUS result = RegCreateKeyExW(HKEY_CURRENT_USER, asWide(below(subKey)), 0, nullptr, options,
                                               KEY_ALL_ACCESS, nullptr, &key, nullptr);
        EXPECT_EQ(result, ERROR_SUCCESS);
        return RegistryKeyHandle(key);
    }
    void setValue(const char16_t *subKey, const char16_t *name, DWORD type, const void *data,
                  std::size_t bytes) const
    {
        const RegistryKeyHandle key = create(subKey);
        EXPECT_EQ(RegSetValueExW(key.get(), asWide(name), 0, type, static_cast<const BYTE *>(data),
                                 static_cast<DWORD>(bytes)),
                  ERROR_SUCCESS);
    }
    void setNumber(const char16_t *subKey, const char16_t *name, DWORD number) const
    {
        setValue(subKey, name, REG_DWORD, &number, sizeof number);
    }

private:
    static WideStr makePath()
    {
        const auto number = static_cast<unsigned>(GetCurrentProcessId());
        return WideStr::fromUtf8(Str::fromFormat("Software\\VelmoxTest-%u", number));
    }

    WideStr path_ = makePath();
};

} // namespace velmox
