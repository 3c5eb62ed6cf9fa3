// ExampleSchemas: a schema database loaded from examples/schemas/, in a
// temporary directory, made the process's schema store for the test's life.
#ifndef SETVAULT_TESTS_SUPPORT_EXAMPLE_SCHEMAS_H_
#define SETVAULT_TESTS_SUPPORT_EXAMPLE_SCHEMAS_H_

#include <string>

#include "support/temp_dir.h"

namespace setvault_test {

class ExampleSchemas {
 public:
  ExampleSchemas();
  ~ExampleSchemas();

  const TempDir& dir() const { return dir_; }

 private:
  TempDir dir_;
};

// examples/schemas/ of the source tree.
std::string ExampleSchemaDir();

}  // namespace setvault_test

#endif  // SETVAULT_TESTS_SUPPORT_EXAMPLE_SCHEMAS_H_
