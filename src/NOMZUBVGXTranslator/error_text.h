// Readable text for the Windows error numbers the platform layer reports. The text lives with the
// numbers, in platform/winerror.h (nomplat::DescribeWindowsError); this name stays for the callers
// that include this header.
#ifndef NOM_NOMZUBVGXTRANSLATOR_ERROR_TEXT_H_
#define NOM_NOMZUBVGXTRANSLATOR_ERROR_TEXT_H_

#include "platform/winerror.h"

namespace nomzub {

// "Windows error 2 (file not found)"; numbers without a known text give "Windows error N".
using nomplat::DescribeWindowsError;

}  // namespace nomzub

#endif  // NOM_NOMZUBVGXTRANSLATOR_ERROR_TEXT_H_
