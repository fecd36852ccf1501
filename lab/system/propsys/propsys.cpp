// The one function of the property system that the products use, and that Wine lacks.
#include <windows.h>
// Needs windows.h before it.
#include <oleauto.h>

#include <algorithm>

namespace {

constexpr HRESULT TEXT_WAS_CUT = static_cast<HRESULT>(0x8007007A);

HRESULT CopyCut(const wchar_t* source, wchar_t* text, UINT capacity) {
  const std::size_t length = SysStringLen(const_cast<BSTR>(source));
  const std::size_t copied = std::min<std::size_t>(length, capacity - 1);
  std::copy_n(source, copied, text);
  text[copied] = L'\0';
  return copied == length ? S_OK : TEXT_WAS_CUT;
}

}  // namespace

extern "C" HRESULT WINAPI VariantToString(const VARIANT& value, wchar_t* text, UINT capacity) {
  if (text == nullptr || capacity == 0) return E_INVALIDARG;
  text[0] = L'\0';
  VARIANT string;
  VariantInit(&string);
  HRESULT result = VariantChangeType(&string, const_cast<VARIANT*>(&value), 0, VT_BSTR);
  if (SUCCEEDED(result)) result = CopyCut(string.bstrVal, text, capacity);
  VariantClear(&string);
  return result;
}
