#ifndef OSTREL_NETWORK_FILTERING_PLATFORM_OBJECTS_H
#define OSTREL_NETWORK_FILTERING_PLATFORM_OBJECTS_H

#include <windows.h>

namespace ostrel {

// What is registered with the Windows Filtering Platform for one IP version, and what the log says when it
// fails. The keys of the callouts and the sub-layer are fixed for good: the callouts outlive the process, and
// the driver registers against the same keys.
struct CalloutObjects {
  const wchar_t* openingLine;
  const wchar_t* sessionName;
  const wchar_t* sessionDescription;
  GUID flowLayer;
  GUID flowCallout;
  GUID streamLayer;
  GUID streamCallout;
  const wchar_t* streamCalloutName;
  const wchar_t* openFailed;
  const wchar_t* transactionFailed;
  const wchar_t* alreadyExists;
  const wchar_t* flowCalloutFailed;
  const wchar_t* streamCalloutFailed;
  const wchar_t* commitFailed;
};

struct FilterObjects {
  const wchar_t* subLayerName;
  const wchar_t* flowFilterName;
  const wchar_t* flowFilterDescription;
  GUID flowLayer;
  GUID flowCallout;
  const wchar_t* streamFilterName;
  const wchar_t* streamFilterDescription;
  GUID streamLayer;
  GUID streamCallout;
  const wchar_t* successLine;
};

extern const CalloutObjects IPV4_CALLOUTS;
extern const CalloutObjects IPV6_CALLOUTS;
extern const FilterObjects IPV4_FILTERS;
extern const FilterObjects IPV6_FILTERS;

// One sub-layer for both IP versions.
extern const GUID SUB_LAYER_KEY;

extern const GUID CONDITION_ALE_USER_ID;
extern const GUID CONDITION_IP_PROTOCOL;

}  // namespace ostrel

#endif
