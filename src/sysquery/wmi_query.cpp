#include "sysquery/wmi_query.h"

#include "util/ostrel_filter_lib_util.h"

// Windows' propsys.dll has it; mingw's headers lack it.
extern "C" __declspec(dllimport) HRESULT WINAPI
    VariantToString(const VARIANT& value, wchar_t* text, UINT capacity);

namespace ostrel {

namespace {

// A string of COM's own kind, which is what WMI takes.
class ComString {
 public:
  explicit ComString(const wchar_t* text) : text_(SysAllocString(text)) {}
  ComString(const ComString&) = delete;
  ComString& operator=(const ComString&) = delete;
  ~ComString() { SysFreeString(text_); }

  BSTR Get() const { return text_; }

 private:
  BSTR text_;
};

template <typename Interface>
void Release(Interface*& pointer) {
  if (pointer != nullptr) pointer->Release();
  pointer = nullptr;
}

}  // namespace

WmiQuery::WmiQuery(const wchar_t* caller) : caller_(caller) {}

WmiQuery::~WmiQuery() {
  Close();
}

bool WmiQuery::Execute(const wchar_t* query, wchar_t** error) {
  HRESULT result = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
  if (FAILED(result)) return Fail(L"%s. Could not initialize COM: %d", result, error);

  result = CoCreateInstance(CLSID_WbemLocator, nullptr, CLSCTX_INPROC_SERVER, IID_IWbemLocator,
                            reinterpret_cast<void**>(&locator_));
  // COM stays initialised after this failure alone.
  if (FAILED(result)) return Fail(L"%s. Failed to CreateInstance. %d", result, error);
  comInitialised_ = true;

  result = locator_->ConnectServer(ComString(L"ROOT\\CIMV2").Get(), nullptr, nullptr, nullptr, 0, nullptr,
                                   nullptr, &services_);
  if (FAILED(result)) {
    return Fail(L"%s. Failed to connect to the root\\cimv2 namespace. %d", result, error);
  }

  result = CoSetProxyBlanket(services_, RPC_C_AUTHN_WINNT, RPC_C_AUTHZ_NONE, nullptr, RPC_C_AUTHN_LEVEL_CALL,
                             RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE);
  if (FAILED(result)) return Fail(L"%s. Failed to setProxyBlanket. %d", result, error);

  result = services_->ExecQuery(ComString(L"WQL").Get(), ComString(query).Get(),
                                WBEM_FLAG_FORWARD_ONLY | WBEM_FLAG_RETURN_IMMEDIATELY, nullptr, &enumerator_);
  if (FAILED(result)) return Fail(L"%s. Failed to exec query. %d", result, error);
  return true;
}

IWbemClassObject* WmiQuery::Next(HRESULT* result) {
  IWbemClassObject* object = nullptr;
  ULONG returned = 0;
  *result = enumerator_->Next(static_cast<LONG>(WBEM_INFINITE), 1, &object, &returned);
  return returned == 0 ? nullptr : object;
}

bool WmiQuery::Fail(const wchar_t* format, HRESULT result, wchar_t** error) {
  Close();
  OstrelFilterLibUtil::AllocStringPointer(error, format, caller_, result);
  return false;
}

void WmiQuery::Close() {
  if (!comInitialised_) return;
  Release(services_);
  Release(locator_);
  Release(enumerator_);
  CoUninitialize();
  comInitialised_ = false;
}

WmiText::WmiText(IWbemClassObject* object, const wchar_t* property) : object_(object) {
  VariantInit(&value_);
  if (SUCCEEDED(object_->Get(property, 0, &value_, nullptr, nullptr))) {
    VariantToString(value_, text_, ARRAYSIZE(text_));
  }
}

WmiText::~WmiText() {
  VariantClear(&value_);
  object_->Release();
}

}  // namespace ostrel
