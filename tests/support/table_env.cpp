// An Env for tests that answers environment look-ups from a table.
#include "support/table_env.h"

#include <utility>

namespace nomtest {

TableEnv::TableEnv(std::initializer_list<std::pair<const std::string, std::string>> variables)
    : EnvWrapper(nomplat::Env::Default()),
      variables_(variables),
      previous_(nomplat::SetCurrentEnv(this)) {}

TableEnv::~TableEnv() { nomplat::SetCurrentEnv(previous_); }

bool TableEnv::GetEnvironmentVariable(const std::string& name, std::string* value) {
  const auto it = variables_.find(name);
  value->clear();
  if (it == variables_.end()) return false;
  *value = it->second;
  return true;
}

}  // namespace nomtest
