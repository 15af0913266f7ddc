/// What the library exports. Everything without this mark is hidden.
#pragma once

#define NAL_EXPORT __attribute__((visibility("default")))
