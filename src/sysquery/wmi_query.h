#ifndef OSTREL_SYSQUERY_WMI_QUERY_H
#define OSTREL_SYSQUERY_WMI_QUERY_H

#include <windows.h>
// Needs windows.h before it.
#include <wbemcli.h>

namespace ostrel {

// One query of Windows Management Instrumentation, with COM initialised for the calling thread while it
// lasts.
class WmiQuery {
 public:
  // `caller` opens every error text.
  explicit WmiQuery(const wchar_t* caller);
  WmiQuery(const WmiQuery&) = delete;
  WmiQuery& operator=(const WmiQuery&) = delete;
  ~WmiQuery();

  // Runs the query. On failure sets `*error` to a new string and releases what was made; only when the
  // locator cannot be made does COM stay initialised.
  bool Execute(const wchar_t* query, wchar_t** error);

  // The next object of the result, which the caller releases; null when `*result` says why there is none.
  IWbemClassObject* Next(HRESULT* result);

  // False when the query succeeded and gave nothing to enumerate.
  bool HasResult() const { return enumerator_ != nullptr; }

  // Releases nothing from now on, and leaves COM initialised.
  void Abandon() { comInitialised_ = false; }

 private:
  bool Fail(const wchar_t* format, HRESULT result, wchar_t** error);
  void Close();

  const wchar_t* caller_;
  bool comInitialised_ = false;
  IWbemLocator* locator_ = nullptr;
  IWbemServices* services_ = nullptr;
  IEnumWbemClassObject* enumerator_ = nullptr;
};

// One property of an object, as text. Owns the object.
class WmiText {
 public:
  // Values beyond 255 characters are cut; what is no text is empty.
  WmiText(IWbemClassObject* object, const wchar_t* property);
  WmiText(const WmiText&) = delete;
  WmiText& operator=(const WmiText&) = delete;
  ~WmiText();

  const wchar_t* Get() const { return text_; }

 private:
  IWbemClassObject* object_;
  VARIANT value_;
  wchar_t text_[256]{};
};

}  // namespace ostrel

#endif
