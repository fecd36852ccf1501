#include "support/scripted_wmi.h"

#include <algorithm>
#include <utility>

#include "support/failure_ledger.h"
#include "support/wmi_objects.h"

namespace ostrel::test {

namespace {

// The COM functions carry no context.
ScriptedWmi* current = nullptr;

// HRESULT of Windows' own when the buffer is too small.
constexpr HRESULT TEXT_WAS_CUT = static_cast<HRESULT>(0x8007007A);

// HRESULT of the management services' own.
constexpr HRESULT PARAMETER_IS_MISSING = static_cast<HRESULT>(0x80041008);

std::string Number(long long value) {
  return std::to_string(value);
}

std::string TextOrNull(const wchar_t* text) {
  return text == nullptr ? "null" : Narrow(text);
}

std::string NullOrNot(const void* pointer) {
  return pointer == nullptr ? "null" : "not null";
}

std::string IdText(const GUID& id) {
  wchar_t text[64] = {};
  StringFromGUID2(id, text, 64);
  return Narrow(text);
}

}  // namespace

// What counts references, whatever interface it has beside. It lives as long as the script, so that a release
// too many is seen and not a crash.
struct ScriptedWmi::Object {
  explicit Object(std::string ownName) : name(std::move(ownName)) {}
  virtual ~Object() = default;

  ULONG Add() { return static_cast<ULONG>(++references); }

  ULONG Remove() {
    current->Enter(name + ".Release()" + (references == 0 ? " TOO OFTEN" : ""), S_OK);
    return static_cast<ULONG>(--references);
  }

  std::string name;
  int references = 1;
};

struct ScriptedWmi::Fakes {
  template <typename Interface>
  struct Counted : Interface, Object {
    using Object::Object;

    HRESULT WINAPI QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
    ULONG WINAPI AddRef() override { return Object::Add(); }
    ULONG WINAPI Release() override { return Object::Remove(); }
  };

  struct ClassObject : Counted<RefusingClassObject> {
    using Counted::Counted;

    HRESULT WINAPI Get(const wchar_t* property, LONG flags, VARIANT* value, CIMTYPE* type,
                       LONG* flavor) override {
      const HRESULT result = current->Enter(name + ".Get(" + Narrow(property) + ", " + Number(flags) + ", " +
                                                NullOrNot(type) + ", " + NullOrNot(flavor) + ")",
                                            current->get);
      if (FAILED(result)) return result;
      if (!text) {
        value->vt = VT_NULL;
        return result;
      }
      value->vt = VT_BSTR;
      value->bstrVal = ::SysAllocString(text->c_str());
      ++current->heldTexts_;
      return result;
    }

    std::optional<std::wstring> text;
  };

  struct Enumerator : Counted<RefusingEnumerator> {
    using Counted::Counted;

    HRESULT WINAPI Next(LONG timeout, ULONG count, IWbemClassObject** objects, ULONG* returned) override {
      current->Enter("enumerator.Next(" + Number(timeout) + ", " + Number(count) + ")", S_OK);
      *returned = 0;
      if (current->position_ == current->objects.size()) return current->EndOfObjects();
      auto* const object = current->Make<ClassObject>("object " + Number(current->position_ + 1LL));
      object->text = current->objects[current->position_++];
      *objects = object;
      *returned = 1;
      return S_OK;
    }
  };

  struct Services : Counted<RefusingServices> {
    using Counted::Counted;

    HRESULT WINAPI ExecQuery(const BSTR language, const BSTR query, LONG flags, IWbemContext* context,
                             IEnumWbemClassObject** enumerator) override {
      const bool isWhole = language != nullptr && query != nullptr;
      const HRESULT result =
          current->Enter("services.ExecQuery(" + TextOrNull(language) + ", " + TextOrNull(query) + ", " +
                             Number(flags) + ", " + NullOrNot(context) + ")",
                         isWhole ? current->execQuery : PARAMETER_IS_MISSING);
      current->position_ = 0;
      if (SUCCEEDED(result) && current->givesEnumerator)
        *enumerator = current->Make<Enumerator>("enumerator");
      return result;
    }
  };

  struct Locator : Counted<IWbemLocator> {
    using Counted::Counted;

    HRESULT WINAPI ConnectServer(const BSTR resource, const BSTR user, const BSTR password, const BSTR locale,
                                 LONG flags, const BSTR authority, IWbemContext* context,
                                 IWbemServices** services) override {
      const HRESULT result =
          current->Enter("locator.ConnectServer(" + TextOrNull(resource) + ", " + TextOrNull(user) + ", " +
                             TextOrNull(password) + ", " + TextOrNull(locale) + ", " + Number(flags) + ", " +
                             TextOrNull(authority) + ", " + NullOrNot(context) + ")",
                         resource != nullptr ? current->connectServer : PARAMETER_IS_MISSING);
      if (SUCCEEDED(result)) *services = current->Make<Services>("services");
      return result;
    }
  };

  static HRESULT WINAPI CoInitializeEx(void* reserved, DWORD kind) {
    return current->Enter("CoInitializeEx(" + NullOrNot(reserved) + ", " + Number(kind) + ")",
                          current->initialize);
  }

  static void WINAPI CoUninitialize() { current->Enter("CoUninitialize()", S_OK); }

  static HRESULT WINAPI CoCreateInstance(REFCLSID what, IUnknown* outer, DWORD where, REFIID kind,
                                         void** made) {
    const HRESULT result = current->Enter("CoCreateInstance(" + IdText(what) + ", " + NullOrNot(outer) +
                                              ", " + Number(where) + ", " + IdText(kind) + ")",
                                          current->createInstance);
    if (SUCCEEDED(result)) *made = static_cast<IWbemLocator*>(current->Make<Locator>("locator"));
    return result;
  }

  static HRESULT WINAPI CoSetProxyBlanket(IUnknown* proxy, DWORD authentication, DWORD authorization,
                                          wchar_t* principal, DWORD authenticationLevel,
                                          DWORD impersonationLevel, RPC_AUTH_IDENTITY_HANDLE identity,
                                          DWORD capabilities) {
    return current->Enter(
        "CoSetProxyBlanket(" + dynamic_cast<Object&>(*proxy).name + ", " + Number(authentication) + ", " +
            Number(authorization) + ", " + TextOrNull(principal) + ", " + Number(authenticationLevel) + ", " +
            Number(impersonationLevel) + ", " + NullOrNot(identity) + ", " + Number(capabilities) + ")",
        current->setProxyBlanket);
  }

  // Cuts as Windows' own does.
  static HRESULT WINAPI VariantToString(const VARIANT& value, wchar_t* text, UINT capacity) {
    const HRESULT result = current->Enter("VariantToString(" + Number(capacity) + ")", current->convert);
    if (FAILED(result)) return result;
    const std::wstring source = value.vt == VT_BSTR ? value.bstrVal : L"";
    const std::size_t copied = std::min<std::size_t>(source.size(), capacity - 1);
    std::copy_n(source.begin(), copied, text);
    text[copied] = L'\0';
    if (copied == source.size()) return S_OK;
    FailureLedger::OfThisProgram().FailedByTheWay("VariantToString", static_cast<DWORD>(TEXT_WAS_CUT));
    return TEXT_WAS_CUT;
  }

  static HRESULT WINAPI VariantClear(VARIANT* value) {
    current->Enter("VariantClear()", S_OK);
    if (value->vt == VT_BSTR) --current->heldTexts_;
    return ::VariantClear(value);
  }

  static BSTR WINAPI SysAllocString(const wchar_t* text) {
    if (text == current->refusedText) {
      FailureLedger::OfThisProgram().FailedOtherwise("SysAllocString", "null for \"" + Narrow(text) + "\"");
      return nullptr;
    }
    ++current->heldTexts_;
    return ::SysAllocString(text);
  }

  static void WINAPI SysFreeString(BSTR text) {
    if (text != nullptr) --current->heldTexts_;
    ::SysFreeString(text);
  }
};

ScriptedWmi::ScriptedWmi(HMODULE module, Transcript& transcript) : transcript_(transcript) {
  current = this;
  const auto patch = [&](const char* function, auto* fake) {
    patches_.emplace_back(module, function, reinterpret_cast<void*>(fake));
  };
  patch("CoInitializeEx", Fakes::CoInitializeEx);
  patch("CoUninitialize", Fakes::CoUninitialize);
  patch("CoCreateInstance", Fakes::CoCreateInstance);
  patch("CoSetProxyBlanket", Fakes::CoSetProxyBlanket);
  patch("VariantToString", Fakes::VariantToString);
  patch("VariantClear", Fakes::VariantClear);
  patch("SysAllocString", Fakes::SysAllocString);
  patch("SysFreeString", Fakes::SysFreeString);
}

ScriptedWmi::~ScriptedWmi() {
  patches_.clear();
  current = nullptr;
}

Lines ScriptedWmi::HeldObjects() const {
  Lines held;
  for (const auto& object : made_) {
    if (object->references != 0) held.push_back(object->name);
  }
  std::sort(held.begin(), held.end());
  return held;
}

HRESULT ScriptedWmi::Enter(const std::string& call, HRESULT result) {
  transcript_.Add(call);
  if (FAILED(result)) {
    const std::string function = call.substr(0, call.find('('));
    // Objects are numbered.
    const std::string name =
        function.starts_with("object ") ? "object" + function.substr(function.find('.')) : function;
    FailureLedger::OfThisProgram().Failed(name, static_cast<DWORD>(result));
  }
  return result;
}

HRESULT ScriptedWmi::EndOfObjects() const {
  FailureLedger& ledger = FailureLedger::OfThisProgram();
  if (FAILED(next)) {
    ledger.Failed("enumerator.Next", static_cast<DWORD>(next));
  } else {
    ledger.FailedByTheWay("enumerator.Next", static_cast<DWORD>(next));
  }
  return next;
}

template <typename Made>
Made* ScriptedWmi::Make(const std::string& name) {
  auto made = std::make_unique<Made>(name);
  Made* const pointer = made.get();
  made_.push_back(std::move(made));
  return pointer;
}

}  // namespace ostrel::test
