// An Env for tests that answers environment look-ups from a table.
#ifndef NOM_TESTS_SUPPORT_TABLE_ENV_H_
#define NOM_TESTS_SUPPORT_TABLE_ENV_H_

#include <initializer_list>
#include <map>
#include <string>
#include <utility>

#include "platform/env.h"

namespace nomtest {

// Answers GetEnvironmentVariable from a table instead of the process environment (a name not in
// it is unset); every other call goes to Env::Default(). Installs itself for its lifetime.
class TableEnv : public nomplat::EnvWrapper {
 public:
  // variables: name -> value; the names not in it are unset.
  explicit TableEnv(std::initializer_list<std::pair<const std::string, std::string>> variables);
  ~TableEnv() override;
  TableEnv(const TableEnv&) = delete;
  TableEnv& operator=(const TableEnv&) = delete;

  bool GetEnvironmentVariable(const std::string& name, std::string* value) override;

 private:
  std::map<std::string, std::string> variables_;
  nomplat::Env* previous_;
};

}  // namespace nomtest

#endif  // NOM_TESTS_SUPPORT_TABLE_ENV_H_
