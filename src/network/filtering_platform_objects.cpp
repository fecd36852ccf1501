#include "network/filtering_platform_objects.h"

namespace ostrel {

namespace {

// The platform's own layers.
constexpr GUID LAYER_ALE_FLOW_ESTABLISHED_V4{
    0xaf80470a, 0x5596, 0x4c13, {0x99, 0x92, 0x53, 0x9e, 0x6f, 0xe5, 0x79, 0x67}};
constexpr GUID LAYER_ALE_FLOW_ESTABLISHED_V6{
    0x7021d2b3, 0xdfa4, 0x406e, {0xaf, 0xeb, 0x6a, 0xfa, 0xf7, 0xe7, 0x0e, 0xfd}};
constexpr GUID LAYER_STREAM_V4{0x3b89653c, 0xc170, 0x49e4, {0xb1, 0xcd, 0xe0, 0xee, 0xee, 0xe1, 0x9a, 0x3e}};
constexpr GUID LAYER_STREAM_V6{0x47c9137a, 0x7ec4, 0x46b3, {0xb6, 0xe4, 0x48, 0xe9, 0x26, 0xb1, 0xed, 0xa4}};

constexpr GUID FLOW_CALLOUT_V4{0x3aaccbc0, 0x2c29, 0x455f, {0xbb, 0x91, 0x0e, 0x80, 0x1c, 0x89, 0x94, 0xa4}};
constexpr GUID STREAM_CALLOUT_V4{
    0xcea0131a, 0x6ed3, 0x4ed6, {0xb4, 0x0c, 0x8a, 0x8f, 0xe8, 0x43, 0x4b, 0x0a}};
constexpr GUID FLOW_CALLOUT_V6{0x30d7c71e, 0xd02d, 0x4f3e, {0x86, 0xbd, 0x11, 0x6b, 0x09, 0xd6, 0xfd, 0x38}};
constexpr GUID STREAM_CALLOUT_V6{
    0x27135921, 0x0583, 0x4eb9, {0xa7, 0x37, 0x7b, 0x2e, 0xc4, 0x31, 0x68, 0x59}};

}  // namespace

const GUID SUB_LAYER_KEY{0xb3241f1d, 0x7cd2, 0x4e7a, {0x87, 0x21, 0x2e, 0x97, 0xd0, 0x77, 0x02, 0xe5}};

const GUID CONDITION_ALE_USER_ID{
    0xaf043a0a, 0xb34d, 0x4f86, {0x97, 0x9c, 0xc9, 0x03, 0x71, 0xaf, 0x6e, 0x66}};
const GUID CONDITION_IP_PROTOCOL{
    0x3971ef2b, 0x623e, 0x4f9a, {0x8c, 0xb1, 0x6e, 0x79, 0xb8, 0x06, 0xb9, 0xa7}};

const CalloutObjects IPV4_CALLOUTS{
    .openingLine = L"Opening filtering engine.",
    .sessionName = L"Monitor Sample Non-Dynamic Session",
    .sessionDescription = L"For Adding callouts",
    .flowLayer = LAYER_ALE_FLOW_ESTABLISHED_V4,
    .flowCallout = FLOW_CALLOUT_V4,
    .streamLayer = LAYER_STREAM_V4,
    .streamCallout = STREAM_CALLOUT_V4,
    .streamCalloutName = L"Stream Callout",
    .openFailed = L"Could not open filtering engine. %ld",
    .transactionFailed = L"Could not start transaction for adding callouts. %ld",
    .alreadyExists = L"Callouts already exist. This is OK.",
    .flowCalloutFailed = L"Could not add persistent flow callout. %ld",
    .streamCalloutFailed = L"Could not add persistent stream callout. %ld",
    .commitFailed = L"Could not commit transaction. %ld",
};

const CalloutObjects IPV6_CALLOUTS{
    .openingLine = L"Opening filtering engine V6.",
    .sessionName = L"Monitor Sample Non-Dynamic Session V6",
    .sessionDescription = L"For Adding callouts V6",
    .flowLayer = LAYER_ALE_FLOW_ESTABLISHED_V6,
    .flowCallout = FLOW_CALLOUT_V6,
    .streamLayer = LAYER_STREAM_V6,
    .streamCallout = STREAM_CALLOUT_V6,
    .streamCalloutName = L"Stream V6 Callout",
    .openFailed = L"Could not open filtering engine V6. %ld",
    .transactionFailed = L"Could not start transaction for adding V6 callouts. %ld",
    .alreadyExists = L"V6 Callouts already exist. This is OK.",
    .flowCalloutFailed = L"Could not add persistent flow callout V6. %ld",
    .streamCalloutFailed = L"Could not add persistent stream V6 callout. %ld",
    .commitFailed = L"Could not commit V6 transaction. %ld",
};

const FilterObjects IPV4_FILTERS{
    .subLayerName = L"Monitor Sample Sub layer",
    .flowFilterName = L"Flow established filter.",
    .flowFilterDescription = L"Sets up flow for traffic that we are interested in.",
    .flowLayer = LAYER_ALE_FLOW_ESTABLISHED_V4,
    .flowCallout = FLOW_CALLOUT_V4,
    .streamFilterName = L"Stream Layer Filter",
    .streamFilterDescription = L"Monitors TCP traffic.",
    .streamLayer = LAYER_STREAM_V4,
    .streamCallout = STREAM_CALLOUT_V4,
    .successLine = L"Successfully configured NW monitoring.",
};

const FilterObjects IPV6_FILTERS{
    .subLayerName = L"V6 Monitor Sample Sub layer",
    .flowFilterName = L"Flow established V6 filter.",
    .flowFilterDescription = L"Sets up flow for V6 traffic that we are interested in.",
    .flowLayer = LAYER_ALE_FLOW_ESTABLISHED_V6,
    .flowCallout = FLOW_CALLOUT_V6,
    .streamFilterName = L"V6 Stream Layer Filter",
    .streamFilterDescription = L"Monitors V6 TCP traffic.",
    .streamLayer = LAYER_STREAM_V6,
    .streamCallout = STREAM_CALLOUT_V6,
    .successLine = L"Successfully configured V6 NW monitoring.",
};

}  // namespace ostrel
