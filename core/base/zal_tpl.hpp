// The bytes of an image, for modules that know their format beforehand and need no map: the header, a reader that never
// leaves the image, a writer, and the hook's memory.
#pragma once

#include "base/zal_tpl/hook.hpp"  // IWYU pragma: export
#include "base/zal_tpl/wire.hpp"  // IWYU pragma: export
