#include "NOMZUBVGXTranslator/error_text.h"

namespace nomzub {

std::string DescribeWindowsError(DWORD error) {
  const char* text = nullptr;
  switch (error) {
    case 2:
      text = "file not found";
      break;
    case 3:
      text = "path not found";
      break;
    case 5:
      text = "access denied";
      break;
    case 32:
      text = "file in use";
      break;
    case 53:
      text = "network path not found";
      break;
    case 112:
      text = "disk full";
      break;
    case 123:
      text = "invalid file name";
      break;
    case 206:
      text = "file name too long";
      break;
    case 1359:
      text = "internal error";
      break;
    default:
      break;
  }
  std::string description = "Windows error " + std::to_string(error);
  if (text != nullptr) description += std::string(" (") + text + ")";
  return description;
}

}  // namespace nomzub
