// Reading the generator's input and option texts.
#include "NOMZUBProxy/generator_options.h"

#include <algorithm>
#include <iterator>

#include "NOMZUBProxy/project_model.h"
#include "services/NOMZUBVGXGenerator.h"

namespace nomzub::proxy {
namespace {

const char* const kFormNames[kFormCount] = {"relative", "dot", "climb", "drive"};

bool Fail(std::string* error, const std::string& text) {
  *error = text;
  return false;
}

std::vector<std::string> Split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  size_t start = 0;
  for (size_t end; (end = text.find(separator, start)) != std::string::npos; start = end + 1) {
    parts.push_back(text.substr(start, end - start));
  }
  parts.push_back(text.substr(start));
  return parts;
}

}  // namespace

bool ParseOption(const std::string& option, RefStyle* style, std::string* error) {
  if (option.empty()) return true;
  for (const std::string& item : Split(option, ';')) {
    size_t eq = item.find('=');
    std::string key = item.substr(0, eq);
    std::string value = eq == std::string::npos ? "" : item.substr(eq + 1);
    if (key == "refs") {
      style->forms.clear();
      for (const std::string& form : Split(value, ',')) {
        int f = 0;
        while (f < kFormCount && form != kFormNames[f]) ++f;
        if (f == kFormCount) {
          return Fail(error, "generator option: unknown reference form '" + form +
                                 "' (expected relative, dot, climb or drive)");
        }
        style->forms.push_back(static_cast<RefForm>(f));
      }
    } else if (key == "sep" && (value == "backslash" || value == "slash" || value == "mixed")) {
      style->separator = value == "backslash" ? Separator::kBackslash
                         : value == "slash"   ? Separator::kSlash
                                              : Separator::kMixed;
    } else {
      return Fail(error, "generator option: cannot read '" + item +
                             "' (expected refs=FORM,... or sep=backslash|slash|mixed)");
    }
  }
  return true;
}

bool ParseInput(const std::string& input, std::set<std::string>* lists, std::string* error) {
  if (input.empty() || input == "all") {
    lists->insert(std::begin(kListIdents), std::end(kListIdents));
    return true;
  }
  for (const std::string& list : Split(input, ',')) {
    if (std::find(std::begin(kListIdents), std::end(kListIdents), list) == std::end(kListIdents)) {
      return Fail(error, "generator input: unknown list '" + list +
                             "' (expected all or ProductList, ResourceList, ManufProd, "
                             "PlanningContext separated by commas)");
    }
    lists->insert(list);
  }
  return true;
}

}  // namespace nomzub::proxy

std::vector<std::string> nomzub::KnownGeneratorOptions() {
  return {"refs=relative|dot|climb|drive[,...]", "sep=backslash|slash|mixed"};
}

bool nomzub::IsKnownGeneratorOption(const std::string& option, std::string* problem) {
  proxy::RefStyle style;
  std::string error;
  if (proxy::ParseOption(option, &style, &error)) return true;
  if (problem != nullptr) *problem = error;
  return false;
}
