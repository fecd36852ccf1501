#ifndef OSTREL_LAB_SYSTEM_FWPUCLNT_LAYERS_H
#define OSTREL_LAB_SYSTEM_FWPUCLNT_LAYERS_H

#include <windows.h>

namespace ostrel::lab {

// One of the layers that the stand-in engine knows.
struct FilteringLayer {
  GUID key;
  const char* name;
  bool knowsUserAndProtocol;  // whether filters can have conditions on them
};

// Null when it is none of them.
const FilteringLayer* FindLayer(const GUID& key);

extern const GUID CONDITION_ALE_USER_ID;
extern const GUID CONDITION_IP_PROTOCOL;

}  // namespace ostrel::lab

#endif
