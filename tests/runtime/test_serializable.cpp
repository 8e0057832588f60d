#include <gtest/gtest.h>

#include <algorithm>

#include "runtime/all_types_record.h"
#include "tarn/runtime/class_registry.h"
#include "tarn/runtime/serializable.h"
#include "tarn/runtime/tensor.h"

namespace tarn {
namespace {

TEST(Serializable, ClassNames) {
  runtime::Serializable base;
  EXPECT_EQ(base.serializable_type_, "Serializable");
  runtime::TensorShape shape;
  EXPECT_EQ(shape.serializable_type_, "Serializable") << "the name is set on first use, not by the constructor";
  EXPECT_EQ(shape.GetClassTypeName(), "TensorShape");
  EXPECT_EQ(shape.serializable_type_, "tarn::runtime::TensorShape") << "left by the demangling step";
  EXPECT_EQ(shape.GetClassTypeNameWithNamespace(), "tarn::runtime::TensorShape");
  runtime::TensorShape::Extra extra;
  EXPECT_EQ(extra.GetClassTypeName(), "Extra");
  testing::AllTypesRecord record;
  EXPECT_EQ(record.GetClassTypeNameWithNamespace(), "tarn::testing::AllTypesRecord");
}

using IntRegistry = runtime::ClassRegistry<std::shared_ptr<int>>;

TEST(ClassRegistry, FirstRegistrationWinsUnlessOverwritten) {
  IntRegistry r;
  r.Register("a", [] { return std::make_shared<int>(1); }, false);
  r.Register("a", [] { return std::make_shared<int>(2); }, false);
  EXPECT_EQ(*r.Create("a"), 1);
  r.Register("a", [] { return std::make_shared<int>(3); }, true);
  EXPECT_EQ(*r.Create("a"), 3);
  EXPECT_EQ(r.Create("A"), nullptr) << "names are case-sensitive";
  EXPECT_EQ(r.Create("missing"), nullptr);
  r.Register("b", [] { return std::make_shared<int>(4); }, false);
  auto keys = r.GetKeys();
  std::sort(keys.begin(), keys.end());
  EXPECT_EQ(keys, (std::vector<std::string>{"a", "b"}));
  r.Unregister("a");
  r.Unregister("never");
  EXPECT_EQ(r.GetKeys(), (std::vector<std::string>{"b"}));
  r.Register("empty", IntRegistry::Creator(), false);
  EXPECT_THROW(r.Create("empty"), std::bad_function_call);
}

}  // namespace
}  // namespace tarn
