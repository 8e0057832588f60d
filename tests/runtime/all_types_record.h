// A record that visits every overload of the visitor, for format tests.
#pragma once

#include <cstring>
#include <string>
#include <vector>

#include "tarn/runtime/serializable.h"

namespace tarn {
namespace testing {

class InnerRecord : public runtime::Serializable {
 public:
  void VisitAttr(const runtime::VisitorPtr& v) override {
    Serializable::VisitAttr(v);
    v->Visit(&value, "value");
    v->Visit(&label, "label");
  }
  int value = 0;
  std::string label;
};

class AllTypesRecord : public runtime::Serializable {
 public:
  void VisitAttr(const runtime::VisitorPtr& v) override {
    Serializable::VisitAttr(v);
    v->Visit(&f32, "f32");
    v->Visit(&f16, "f16");
    v->Visit(&f64, "f64");
    v->Visit(&i8, "i8");
    v->Visit(&u8, "u8");
    v->Visit(&i16, "i16");
    v->Visit(&u16, "u16");
    v->Visit(&i32, "i32");
    v->Visit(&u32, "u32");
    v->Visit(&i64, "i64");
    v->Visit(&u64, "u64");
    v->Visit(&flag, "flag");
    // The char overload copies a JSON string of any length into the buffer;
    // hostile-input runs leave it out.
    if (visit_char) v->Visit(ch, "ch");
    v->Visit(&text, "text");
    v->Visit(&vf32, "vf32");
    v->Visit(&vf16, "vf16");
    v->Visit(&vu16, "vu16");
    v->Visit(&vi16, "vi16");
    v->Visit(&vtext, "vtext");
    v->Visit(&inner, "inner");
    v->Visit(&vi32, "vi32");
    v->Visit(&vi64, "vi64");
    v->Visit(&vu32, "vu32");
    v->Visit(&vu64, "vu64");
    v->Visit(&vvu16, "vvu16");
  }

  // Fills every attribute with values that use the whole width of its type.
  void FillDistinct() {
    f32 = -1.5e-3f;
    f16 = half_float::half(0.75f);
    f64 = 3.141592653589793;
    i8 = -100;
    u8 = 200;
    i16 = -30000;
    u16 = 60000;
    i32 = -2000000000;
    u32 = 4000000000u;
    i64 = -9000000000000000000L;
    u64 = 18000000000000000000UL;
    flag = true;
    ch[0] = 'q';
    ch[1] = '\0';
    text = "h\xc3\xa9llo \"quoted\"";
    vf32 = {1.0f, -2.5f, 3.25f};
    vf16 = {half_float::half(0.5f), half_float::half(-2.0f)};
    vu16 = {0, 1, 65535};
    vi16 = {-32768, 0, 32767};
    vtext = {"a", "", "ccc"};
    inner.value = -7;
    inner.label = "inner";
    vi32 = {-1, 2, -2147483647 - 1};
    vi64 = {-5000000000L, 7};
    vu32 = {4294967295u, 0};
    vu64 = {18446744073709551615UL, 1};
    vvu16 = {{1, 2}, {3}};
  }

  bool SameValues(const AllTypesRecord& o) const {
    return f32 == o.f32 && f16 == o.f16 && f64 == o.f64 && i8 == o.i8 && u8 == o.u8 && i16 == o.i16 &&
           u16 == o.u16 && i32 == o.i32 && u32 == o.u32 && i64 == o.i64 && u64 == o.u64 && flag == o.flag &&
           ch[0] == o.ch[0] && text == o.text && vf32 == o.vf32 && vf16 == o.vf16 && vu16 == o.vu16 &&
           vi16 == o.vi16 && vtext == o.vtext && inner.value == o.inner.value && inner.label == o.inner.label &&
           vi32 == o.vi32 && vi64 == o.vi64 && vu32 == o.vu32 && vu64 == o.vu64 && vvu16 == o.vvu16;
  }

  bool visit_char = true;
  float f32 = 0;
  half_float::half f16;
  double f64 = 0;
  signed char i8 = 0;
  unsigned char u8 = 0;
  short i16 = 0;
  unsigned short u16 = 0;
  int i32 = 0;
  unsigned int u32 = 0;
  long i64 = 0;
  unsigned long u64 = 0;
  bool flag = false;
  char ch[8] = {};
  std::string text;
  std::vector<float> vf32;
  std::vector<half_float::half> vf16;
  std::vector<unsigned short> vu16;
  std::vector<short> vi16;
  std::vector<std::string> vtext;
  InnerRecord inner;
  std::vector<int> vi32;
  std::vector<long> vi64;
  std::vector<unsigned int> vu32;
  std::vector<unsigned long> vu64;
  std::vector<std::vector<unsigned short>> vvu16;
};

}  // namespace testing
}  // namespace tarn
