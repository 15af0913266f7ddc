/// What a host runtime shows to the library that it loads.
///
/// Every class and function of the host interfaces carries this mark; everything else in a runtime is hidden.
#pragma once

#define NAL_HOST_EXPORT __attribute__((visibility("default")))
