// The one place a failed Pack & Go copy is reported.
#include "NOMSOIUtility.h"
#include "platform/win32.h"
#include "utility/module_internal.h"

namespace {

// The text for the thread's last error after a failed copy. Error 1 is labelled as a read-only
// attribute on purpose: that is the wording users of the log know.
const char* CopyErrorText(DWORD code) {
  switch (code) {
    case 2:
      return "Error Code: File Not Found";
    case 5:
      return "Error Code: Access Denied";
    case 1:
      return "Error Code: File Attribute Read Only";
    case 6000:
      return "Error Code: Encryption Failed";
    default:
      return "Error Code: Unknown";
  }
}

}  // namespace

void NOMSOIUtility::PrintError(const std::string& source, const std::string& target,
                               const int32_t& /*unused*/, const int32_t& copyResult) {
  if (copyResult != 0) return;
  std::string message = "Copying File. ";
  message += "Source Path: '" + source + "'. ";
  message += "Target Path: '" + target + "'. ";
  // Read only now, right before it is needed, as the copy left it.
  message += CopyErrorText(nomplat::GetLastError());
  nomsoi::Log("****** ERROR:\t " + message);
}
