/// The COM string wrapper. Unlike the SDK's own it cannot be copied, so it needs no reference count.
#pragma once

#include "windows.h"

class _bstr_t
{
public:
    _bstr_t(const wchar_t *text) : m_text(SysAllocString(text)) {}
    _bstr_t(const _bstr_t &) = delete;
    _bstr_t &operator=(const _bstr_t &) = delete;
    ~_bstr_t() { SysFreeString(m_text); }
    operator wchar_t *() const { return m_text; }

private:
    BSTR m_text;
};
