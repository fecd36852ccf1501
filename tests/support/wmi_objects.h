#ifndef OSTREL_TESTS_SUPPORT_WMI_OBJECTS_H
#define OSTREL_TESTS_SUPPORT_WMI_OBJECTS_H

#include <windows.h>
// Needs windows.h before it.
#include <wbemcli.h>

namespace ostrel::test {

// The management interfaces with every member refused that the library does not call.

class RefusingServices : public IWbemServices {
 public:
  HRESULT WINAPI OpenNamespace(const BSTR, LONG, IWbemContext*, IWbemServices**, IWbemCallResult**) override {
    return E_NOTIMPL;
  }
  HRESULT WINAPI CancelAsyncCall(IWbemObjectSink*) override { return E_NOTIMPL; }
  HRESULT WINAPI QueryObjectSink(LONG, IWbemObjectSink**) override { return E_NOTIMPL; }
  HRESULT WINAPI GetObject(const BSTR, LONG, IWbemContext*, IWbemClassObject**, IWbemCallResult**) override {
    return E_NOTIMPL;
  }
  HRESULT WINAPI GetObjectAsync(const BSTR, LONG, IWbemContext*, IWbemObjectSink*) override {
    return E_NOTIMPL;
  }
  HRESULT WINAPI PutClass(IWbemClassObject*, LONG, IWbemContext*, IWbemCallResult**) override {
    return E_NOTIMPL;
  }
  HRESULT WINAPI PutClassAsync(IWbemClassObject*, LONG, IWbemContext*, IWbemObjectSink*) override {
    return E_NOTIMPL;
  }
  HRESULT WINAPI DeleteClass(const BSTR, LONG, IWbemContext*, IWbemCallResult**) override {
    return E_NOTIMPL;
  }
  HRESULT WINAPI DeleteClassAsync(const BSTR, LONG, IWbemContext*, IWbemObjectSink*) override {
    return E_NOTIMPL;
  }
  HRESULT WINAPI CreateClassEnum(const BSTR, LONG, IWbemContext*, IEnumWbemClassObject**) override {
    return E_NOTIMPL;
  }
  HRESULT WINAPI CreateClassEnumAsync(const BSTR, LONG, IWbemContext*, IWbemObjectSink*) override {
    return E_NOTIMPL;
  }
  HRESULT WINAPI PutInstance(IWbemClassObject*, LONG, IWbemContext*, IWbemCallResult**) override {
    return E_NOTIMPL;
  }
  HRESULT WINAPI PutInstanceAsync(IWbemClassObject*, LONG, IWbemContext*, IWbemObjectSink*) override {
    return E_NOTIMPL;
  }
  HRESULT WINAPI DeleteInstance(const BSTR, LONG, IWbemContext*, IWbemCallResult**) override {
    return E_NOTIMPL;
  }
  HRESULT WINAPI DeleteInstanceAsync(const BSTR, LONG, IWbemContext*, IWbemObjectSink*) override {
    return E_NOTIMPL;
  }
  HRESULT WINAPI CreateInstanceEnum(const BSTR, LONG, IWbemContext*, IEnumWbemClassObject**) override {
    return E_NOTIMPL;
  }
  HRESULT WINAPI CreateInstanceEnumAsync(const BSTR, LONG, IWbemContext*, IWbemObjectSink*) override {
    return E_NOTIMPL;
  }
  HRESULT WINAPI ExecQueryAsync(const BSTR, const BSTR, LONG, IWbemContext*, IWbemObjectSink*) override {
    return E_NOTIMPL;
  }
  HRESULT WINAPI ExecNotificationQuery(const BSTR, const BSTR, LONG, IWbemContext*,
                                       IEnumWbemClassObject**) override {
    return E_NOTIMPL;
  }
  HRESULT WINAPI ExecNotificationQueryAsync(const BSTR, const BSTR, LONG, IWbemContext*,
                                            IWbemObjectSink*) override {
    return E_NOTIMPL;
  }
  HRESULT WINAPI ExecMethod(const BSTR, const BSTR, LONG, IWbemContext*, IWbemClassObject*,
                            IWbemClassObject**, IWbemCallResult**) override {
    return E_NOTIMPL;
  }
  HRESULT WINAPI ExecMethodAsync(const BSTR, const BSTR, LONG, IWbemContext*, IWbemClassObject*,
                                 IWbemObjectSink*) override {
    return E_NOTIMPL;
  }
};

class RefusingEnumerator : public IEnumWbemClassObject {
 public:
  HRESULT WINAPI Reset() override { return E_NOTIMPL; }
  HRESULT WINAPI NextAsync(ULONG, IWbemObjectSink*) override { return E_NOTIMPL; }
  HRESULT WINAPI Clone(IEnumWbemClassObject**) override { return E_NOTIMPL; }
  HRESULT WINAPI Skip(LONG, ULONG) override { return E_NOTIMPL; }
};

class RefusingClassObject : public IWbemClassObject {
 public:
  HRESULT WINAPI GetQualifierSet(IWbemQualifierSet**) override { return E_NOTIMPL; }
  HRESULT WINAPI Put(LPCWSTR, LONG, VARIANT*, CIMTYPE) override { return E_NOTIMPL; }
  HRESULT WINAPI Delete(LPCWSTR) override { return E_NOTIMPL; }
  HRESULT WINAPI GetNames(LPCWSTR, LONG, VARIANT*, SAFEARRAY**) override { return E_NOTIMPL; }
  HRESULT WINAPI BeginEnumeration(LONG) override { return E_NOTIMPL; }
  HRESULT WINAPI Next(LONG, BSTR*, VARIANT*, CIMTYPE*, LONG*) override { return E_NOTIMPL; }
  HRESULT WINAPI EndEnumeration() override { return E_NOTIMPL; }
  HRESULT WINAPI GetPropertyQualifierSet(LPCWSTR, IWbemQualifierSet**) override { return E_NOTIMPL; }
  HRESULT WINAPI Clone(IWbemClassObject**) override { return E_NOTIMPL; }
  HRESULT WINAPI GetObjectText(LONG, BSTR*) override { return E_NOTIMPL; }
  HRESULT WINAPI SpawnDerivedClass(LONG, IWbemClassObject**) override { return E_NOTIMPL; }
  HRESULT WINAPI SpawnInstance(LONG, IWbemClassObject**) override { return E_NOTIMPL; }
  HRESULT WINAPI CompareTo(LONG, IWbemClassObject*) override { return E_NOTIMPL; }
  HRESULT WINAPI GetPropertyOrigin(LPCWSTR, BSTR*) override { return E_NOTIMPL; }
  HRESULT WINAPI InheritsFrom(LPCWSTR) override { return E_NOTIMPL; }
  HRESULT WINAPI GetMethod(LPCWSTR, LONG, IWbemClassObject**, IWbemClassObject**) override {
    return E_NOTIMPL;
  }
  HRESULT WINAPI PutMethod(LPCWSTR, LONG, IWbemClassObject*, IWbemClassObject*) override { return E_NOTIMPL; }
  HRESULT WINAPI DeleteMethod(LPCWSTR) override { return E_NOTIMPL; }
  HRESULT WINAPI BeginMethodEnumeration(LONG) override { return E_NOTIMPL; }
  HRESULT WINAPI NextMethod(LONG, BSTR*, IWbemClassObject**, IWbemClassObject**) override {
    return E_NOTIMPL;
  }
  HRESULT WINAPI EndMethodEnumeration() override { return E_NOTIMPL; }
  HRESULT WINAPI GetMethodQualifierSet(LPCWSTR, IWbemQualifierSet**) override { return E_NOTIMPL; }
  HRESULT WINAPI GetMethodOrigin(LPCWSTR, BSTR*) override { return E_NOTIMPL; }
};

}  // namespace ostrel::test

#endif
