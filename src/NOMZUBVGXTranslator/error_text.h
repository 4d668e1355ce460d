// Readable text for the Windows error numbers the platform layer reports. Used by the
// translator's diagnostics and by hosts.
#ifndef NOM_NOMZUBVGXTRANSLATOR_ERROR_TEXT_H_
#define NOM_NOMZUBVGXTRANSLATOR_ERROR_TEXT_H_

#include <string>

#include "NOMSOITypes.h"

namespace nomzub {

// "Windows error 2 (file not found)"; numbers without a known text give "Windows error N".
NOM_API std::string DescribeWindowsError(DWORD error);

}  // namespace nomzub

#endif  // NOM_NOMZUBVGXTRANSLATOR_ERROR_TEXT_H_
