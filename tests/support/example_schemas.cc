#include "support/example_schemas.h"

#include "setvault/host_setup.h"
#include "setvault/schema_setup.h"

namespace setvault_test {

std::string ExampleSchemaDir() { return SourceDir() + "/examples/schemas"; }

ExampleSchemas::ExampleSchemas() {
  KorvoSetvault::SetSchemaStorePath(dir_.File("schema.db"));
  KorvoSetvault::LoadSchemaDefinitions(ExampleSchemaDir());
}

ExampleSchemas::~ExampleSchemas() {
  KorvoSetvault::SetSchemaStorePath(KorvoSetvault::kDefaultSchemaStorePath);
}

}  // namespace setvault_test
