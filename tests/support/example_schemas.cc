#include "support/example_schemas.h"

#include "setvault/host_setup.h"
#include "setvault/schema_setup.h"

namespace setvault_test {

std::string ExampleSchemaDir() { return SourceDir() + "/examples/schemas"; }

ExampleSchemas::ExampleSchemas() {
  // Loading writes the shipped defaults into the store: a store of its own,
  // never the system's. Fixtures with a store of their own set it afterwards.
  KorvoSetvault::SetStorePath(dir_.File("store.db"));
  KorvoSetvault::SetSchemaStorePath(dir_.File("schema.db"));
  KorvoSetvault::LoadSchemaDefinitions(ExampleSchemaDir());
}

ExampleSchemas::~ExampleSchemas() {
  KorvoSetvault::SetStorePath(KorvoSetvault::kDefaultStorePath);
  KorvoSetvault::SetSchemaStorePath(KorvoSetvault::kDefaultSchemaStorePath);
}

}  // namespace setvault_test
