#include "convert/kernel_table.h"

#include <algorithm>
#include <map>
#include <sstream>

namespace tarn {
namespace convert {

using namespace runtime;

const char* LayoutName(Layout layout) {
  switch (layout) {
    case Layout::kPlanar: return "CHW";
    case Layout::kC4HW4: return "C4HW4";
    case Layout::kC8HW8: return "C8HW8";
    case Layout::kAny: return "any";
  }
  return "?";
}

const char* FamilyName(Family family) {
  switch (family) {
    case Family::kFallback: return "Fallback";
    case Family::kSSE: return "SSE";
    case Family::kAVX: return "AVX";
    case Family::kSGEMM: return "SGEMM";
  }
  return "?";
}

std::uint32_t Lanes(Layout layout) {
  return layout == Layout::kC4HW4 ? 4 : layout == Layout::kC8HW8 ? 8 : 1;
}

RuntimeDims BlockedDims(const RuntimeDims& chw, Layout layout) {
  const std::uint32_t lanes = Lanes(layout);
  if (lanes == 1 || chw.size() != 3) return chw;
  return {(chw[0] + lanes - 1) / lanes, chw[1], chw[2], lanes};
}

namespace {

using F = Family;
using L = Layout;

Constraint All(std::vector<Constraint> parts) {
  return [parts](const LayerQuery& q) {
    for (const auto& p : parts) {
      if (!p) continue;
      const std::string why = p(q);
      if (!why.empty()) return why;
    }
    return std::string();
  };
}

std::string Text(const char* what, int want, int have) {
  std::ostringstream s;
  s << what << " " << have << " (the kernel takes " << want << ")";
  return s.str();
}

// Geometry of a 2-D convolution: 0 means any; groups 0 any, -1 depthwise.
// `zero_pad`: the member has no padding step, so the layer must have none.
Constraint Conv(int kx, int ky, int sx, int sy, int d, int groups, bool zero_pad) {
  return [=](const LayerQuery& q) -> std::string {
    const auto* c = dynamic_cast<const Conv2dInfo*>(q.record);
    if (!c) return "not a convolution record";
    if (kx && c->kernel_x != kx) return Text("kernel width", kx, c->kernel_x);
    if (ky && c->kernel_y != ky) return Text("kernel height", ky, c->kernel_y);
    if (sx && c->stride_x != sx) return Text("stride x", sx, c->stride_x);
    if (sy && c->stride_y != sy) return Text("stride y", sy, c->stride_y);
    if (d && (c->dilation_x != d || c->dilation_y != d)) return Text("dilation", d, c->dilation_x);
    if (groups > 0 && c->groups != groups) return Text("groups", groups, c->groups);
    if (groups < 0 && !(c->groups == c->in_channels && c->groups == c->out_channels)) return "not depthwise";
    if (zero_pad && (c->padding_l || c->padding_t || c->padding_r || c->padding_b)) return "padded (the member has no padding step)";
    return "";
  };
}

Constraint InChannels(int channels) {
  return [=](const LayerQuery& q) -> std::string {
    const auto* c = dynamic_cast<const Conv2dInfo*>(q.record);
    return c && c->in_channels == channels ? "" : "needs exactly " + std::to_string(channels) + " input channels";
  };
}

Constraint OutChannels(int channels) {
  return [=](const LayerQuery& q) -> std::string {
    const auto* c = dynamic_cast<const Conv2dInfo*>(q.record);
    return c && c->out_channels == channels ? "" : "needs exactly " + std::to_string(channels) + " output channels";
  };
}

Constraint Transposed3x3() {
  return [](const LayerQuery& q) -> std::string {
    const auto* c = dynamic_cast<const ConvTranspose2dInfo*>(q.record);
    if (!c) return "not a transposed convolution record";
    if (c->kernel_x != 3 || c->kernel_y != 3) return "not 3x3";
    if (c->dilation_x != 1 || c->dilation_y != 1) return "dilated";
    if (c->groups != 1) return "grouped";
    return "";
  };
}

Constraint Conv1d3() {
  return [](const LayerQuery& q) -> std::string {
    const auto* c = dynamic_cast<const Conv1dInfo*>(q.record);
    if (!c) return "not a 1-D convolution record";
    if (c->kernel_size != 3 || c->stride != 1 || c->dilation != 1 || c->groups != 1) return "not kernel 3, stride 1, dilation 1, one group";
    return "";
  };
}

// A fixed-size pooling member reads the window straight from the unpadded
// input: the layer must have no padding and no dilation.
Constraint FixedPool(int k, int s) {
  return [=](const LayerQuery& q) -> std::string {
    std::uint16_t kx, ky, sx, sy;
    std::int16_t pl, pt, pr, pb;
    if (const auto* m = dynamic_cast<const MaxPool2dInfo*>(q.record)) {
      kx = m->kernel_x, ky = m->kernel_y, sx = m->stride_x, sy = m->stride_y;
      pl = m->padding_l, pt = m->padding_t, pr = m->padding_r, pb = m->padding_b;
      if (m->dilation_x != 1 || m->dilation_y != 1) return "dilated (fixed-size kernels have no dilation)";
    } else if (const auto* a = dynamic_cast<const AvgPool2dInfo*>(q.record)) {
      kx = a->kernel_x, ky = a->kernel_y, sx = a->stride_x, sy = a->stride_y;
      pl = a->padding_l, pt = a->padding_t, pr = a->padding_r, pb = a->padding_b;
    } else {
      return "not a pooling record";
    }
    if (kx != k || ky != k) return Text("window", k, kx);
    if (sx != s || sy != s) return Text("stride", s, sx);
    if (pl || pt || pr || pb) return "padded (fixed-size kernels read the unpadded input)";
    return "";
  };
}

Constraint Activation(std::uint16_t code) {
  return [=](const LayerQuery& q) -> std::string {
    const auto* a = dynamic_cast<const ActivationInfo*>(q.record);
    return a && a->activation_type == code ? "" : "another activation";
  };
}

// The in-place members overwrite their input.
Constraint InPlace() {
  return [](const LayerQuery& q) -> std::string {
    return q.may_overwrite_input ? "" : "its input is read elsewhere or is not a fresh tensor";
  };
}

Constraint ElementOp(std::uint16_t code) {
  return [=](const LayerQuery& q) -> std::string {
    const auto* e = dynamic_cast<const ElementWiseOperatorInfo*>(q.record);
    return e && e->op_type == code ? "" : "another operation";
  };
}

// Multiplication by a per-channel scale [C, 1, 1].
Constraint PerChannelMul() {
  return [](const LayerQuery& q) -> std::string {
    const auto* b = dynamic_cast<const BroadcastOperatorInfo*>(q.record);
    if (!b || b->op_type != ELEMENTWISE_MUL) return "not a multiplication";
    if (q.inputs.size() != 2) return "not two inputs";
    for (int k = 0; k < 2; ++k) {
      const RuntimeDims& s = q.inputs[k];
      const RuntimeDims& x = q.inputs[1 - k];
      if (s.size() == 3 && x.size() == 3 && s[0] == x[0] && s[1] == 1 && s[2] == 1) return "";
    }
    return "not a per-channel scale";
  };
}

// Blocked operands of the general broadcast must be whole images of one shape family.
Constraint BlockedImages() {
  return [](const LayerQuery& q) -> std::string {
    if (q.layout == L::kPlanar) return "";
    for (const RuntimeDims& d : q.inputs) {
      if (d.size() != 3) return "an operand is not an image";
    }
    return "";
  };
}

// A flat-vector kernel reads a blocked map in CHW order only when it is one pixel.
Constraint FlatVector() {
  return [](const LayerQuery& q) -> std::string {
    if (q.layout == L::kPlanar) return "";
    if (q.inputs.size() != 1 || q.inputs[0].size() != 3 || q.inputs[0][1] != 1 || q.inputs[0][2] != 1) {
      return "a blocked map of more than one pixel is not in CHW order";
    }
    return "";
  };
}

Constraint FeatureMultiple(int m) {
  return [=](const LayerQuery& q) -> std::string {
    const auto* f = dynamic_cast<const FullConnectionInfo*>(q.record);
    return f && f->in_features % m == 0 && f->out_features % m == 0
               ? ""
               : "feature counts are not multiples of " + std::to_string(m);
  };
}

struct RuleBuilder {
  std::vector<KernelRule>* rules;
  void Add(std::string name, std::uint16_t record, F family, L in, L out, int rank, Constraint c = nullptr,
           bool approximate = false) {
    KernelRule r;
    r.name = std::move(name);
    r.record = record;
    r.family = family;
    r.in = in;
    r.out = out;
    r.rank = rank;
    r.constraint = std::move(c);
    r.approximate = approximate;
    rules->push_back(std::move(r));
  }
  // A family matched by its operation word: planar unless the name says otherwise.
  void Operation(std::string word, std::uint16_t record) {
    KernelRule r;
    r.name = std::move(word);
    r.record = record;
    r.by_operation = true;
    rules->push_back(std::move(r));
  }
};

void ConvolutionRules(RuleBuilder& b) {
  const auto C = LAYER_CONV2D;
  // General members.
  b.Add("Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1", C, F::kFallback, L::kPlanar, L::kPlanar, 90);
  b.Add("Conv2D_Knxm_Snxm_Dnxm_Gn_SSE_CHW_Float_M1", C, F::kSSE, L::kPlanar, L::kPlanar, 45);
  b.Add("Conv2D_Knxm_Snxm_Dnxm_G1_SSE_C4HW4_Float_M1", C, F::kSSE, L::kC4HW4, L::kC4HW4, 40, Conv(0, 0, 0, 0, 0, 1, false));
  b.Add("Conv2D_Knxm_Snxm_Dnxm_G1_SSE_C8HW8_Float_M1", C, F::kSSE, L::kC8HW8, L::kC8HW8, 42, Conv(0, 0, 0, 0, 0, 1, false));
  b.Add("Conv2D_Knxm_Snxm_Dnxm_G1_AVX_C8HW8_Float_M1", C, F::kAVX, L::kC8HW8, L::kC8HW8, 35, Conv(0, 0, 0, 0, 0, 1, false));
  b.Add("Conv2d_K1x1_S1x1_D1x1_G1_SGEMM_CHW_FLOAT_M1", C, F::kSGEMM, L::kPlanar, L::kPlanar, 20, Conv(1, 1, 1, 1, 1, 1, true));

  // Specialised SSE members: (kernel, stride, layout, variant, padding step).
  struct Member {
    const char* name;
    int k1, k2, s;  // kernel width, height, stride
    L layout;
    bool pads;
  };
  const Member sse[] = {
      {"Conv2d_K1x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1", 1, 1, 1, L::kPlanar, false},
      {"Conv2d_K1x1_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1", 1, 1, 1, L::kC4HW4, false},
      {"Conv2d_K1x1_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M2", 1, 1, 1, L::kC4HW4, false},
      {"Conv2d_K1x1_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1", 1, 1, 1, L::kC8HW8, false},
      {"Conv2d_K1x1_S2x2_D1x1_G1_SSE_CHW_FLOAT_M1", 1, 1, 2, L::kPlanar, true},
      {"Conv2d_K1x1_S2x2_D1x1_G1_SSE_C4HW4_FLOAT_M1", 1, 1, 2, L::kC4HW4, false},
      {"Conv2d_K1x1_S2x2_D1x1_G1_SSE_C8HW8_FLOAT_M1", 1, 1, 2, L::kC8HW8, false},
      {"Conv2d_K1x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1", 3, 1, 1, L::kPlanar, true},
      {"Conv2d_K1x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1", 3, 1, 1, L::kC4HW4, true},
      {"Conv2d_K1x3_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1", 3, 1, 1, L::kC8HW8, true},
      {"Conv2d_K3x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1", 1, 3, 1, L::kPlanar, true},
      {"Conv2d_K3x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M2", 1, 3, 1, L::kPlanar, true},
      {"Conv2d_K3x1_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1", 1, 3, 1, L::kC4HW4, true},
      {"Conv2d_K3x1_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1", 1, 3, 1, L::kC8HW8, true},
      {"Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1", 3, 3, 1, L::kPlanar, true},
      {"Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_Winograd_M1", 3, 3, 1, L::kPlanar, true},
      {"Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_Winograd_M2", 3, 3, 1, L::kPlanar, true},
      {"Conv2d_K3x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1", 3, 3, 1, L::kC4HW4, true},
      {"Conv2d_K3x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M2", 3, 3, 1, L::kC4HW4, true},
      {"Conv2d_K3x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M3", 3, 3, 1, L::kC4HW4, true},
      {"Conv2d_K3x3_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1", 3, 3, 1, L::kC8HW8, true},
      {"Conv2d_K3x3_S2x2_D1x1_G1_SSE_CHW_FLOAT_M1", 3, 3, 2, L::kPlanar, true},
      {"Conv2d_K3x3_S2x2_D1x1_G1_SSE_C4HW4_FLOAT_M1", 3, 3, 2, L::kC4HW4, true},
      {"Conv2d_K3x3_S2x2_D1x1_G1_SSE_C8HW8_FLOAT_M1", 3, 3, 2, L::kC8HW8, true},
  };
  for (const Member& m : sse) {
    b.Add(m.name, C, F::kSSE, m.layout, m.layout, 25, Conv(m.k1, m.k2, m.s, m.s, 1, 1, !m.pads));
  }
  const Member avx[] = {
      {"Conv2d_K1x1_S1x1_D1x1_G1_AVX_CHW_FLOAT_M1", 1, 1, 1, L::kPlanar, false},
      {"Conv2d_K1x1_S1x1_D1x1_G1_AVX_C4HW4_FLOAT_M1", 1, 1, 1, L::kC4HW4, false},
      {"Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1", 1, 1, 1, L::kC8HW8, false},
      {"Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M2", 1, 1, 1, L::kC8HW8, false},
      {"Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M3", 1, 1, 1, L::kC8HW8, false},
      {"Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_Strassen_M1", 1, 1, 1, L::kC8HW8, false},
      {"Conv2d_K1x1_S2x2_D1x1_G1_AVX_C8HW8_FLOAT_M1", 1, 1, 2, L::kC8HW8, false},
      {"Conv2d_K1x3_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1", 3, 1, 1, L::kC8HW8, true},
      {"Conv2d_K3x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1", 1, 3, 1, L::kC8HW8, true},
      {"Conv2d_K3x3_S1x1_D1x1_G1_AVX_CHW_FLOAT_M1", 3, 3, 1, L::kPlanar, true},
      {"Conv2d_K3x3_S1x1_D1x1_G1_AVX_C4HW4_FLOAT_M1", 3, 3, 1, L::kC4HW4, true},
      {"Conv2d_K3x3_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1", 3, 3, 1, L::kC8HW8, true},
      {"Conv2d_K3x3_S2x2_D1x1_G1_AVX_C8HW8_FLOAT_M1", 3, 3, 2, L::kC8HW8, true},
      {"Conv2d_K5x5_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1", 5, 5, 1, L::kC8HW8, true},
      {"Conv2d_K5x5_S2x2_D1x1_G1_AVX_CHW_FLOAT_M1", 5, 5, 2, L::kPlanar, true},
      {"Conv2d_K7x7_S2x2_D1x1_G1_AVX_CHW_FLOAT_M1", 7, 7, 2, L::kPlanar, true},
  };
  for (const Member& m : avx) {
    b.Add(m.name, C, F::kAVX, m.layout, m.layout, 20, Conv(m.k1, m.k2, m.s, m.s, 1, 1, !m.pads));
  }
  // Members that change layout: image stems (3 planar channels in), the 1x1
  // member that ends a blocked chain, and the 3- and 1-channel heads.
  const Constraint k3s1 = Conv(3, 3, 1, 1, 1, 1, false);
  b.Add("Conv2d_K3x3_S1x1_D1x1_G1_SSE_3In_CHW_To_C4HW4_FLOAT_M1", C, F::kSSE, L::kPlanar, L::kC4HW4, 15, All({k3s1, InChannels(3)}));
  b.Add("Conv2d_K3x3_S1x1_D1x1_G1_AVX_3In_CHW_To_C4HW4_FLOAT_M1", C, F::kAVX, L::kPlanar, L::kC4HW4, 14, All({k3s1, InChannels(3)}));
  b.Add("Conv2d_K3x3_S1x1_D1x1_G1_AVX_3In_CHW_To_C8HW8_FLOAT_M1", C, F::kAVX, L::kPlanar, L::kC8HW8, 14, All({k3s1, InChannels(3)}));
  b.Add("Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_TO_CHW_FLOAT_M1", C, F::kAVX, L::kC8HW8, L::kPlanar, 20, Conv(1, 1, 1, 1, 1, 1, true));
  b.Add("Conv2d_K3x3_S1x1_D1x1_G1_AVX_C4HW4_To_CHW_3Out_FLOAT_M1", C, F::kAVX, L::kC4HW4, L::kPlanar, 20, All({k3s1, OutChannels(3)}));
  b.Add("Conv2d_K3x3_S1x1_D1x1_G1_AVX_C8HW8_To_CHW_1Out_FLOAT_M1", C, F::kAVX, L::kC8HW8, L::kPlanar, 20, All({k3s1, OutChannels(1)}));

  // Depthwise members (groups = channels).
  const struct {
    const char* name;
    int k, s;
    F family;
    L layout;
  } depthwise[] = {
      {"Depthwise_Conv2D_K3x3_S1x1_D1x1_SSE_CHW_FLOAT_M1", 3, 1, F::kSSE, L::kPlanar},
      {"Depthwise_Conv2D_K3x3_S2x2_D1x1_SSE_CHW_FLOAT_M1", 3, 2, F::kSSE, L::kPlanar},
      {"Depthwise_Conv2D_K3x3_S1x1_D1x1_SSE_C4HW4_FLOAT_M1", 3, 1, F::kSSE, L::kC4HW4},
      {"Depthwise_Conv2D_K3x3_S2x2_D1x1_SSE_C4HW4_FLOAT_M1", 3, 2, F::kSSE, L::kC4HW4},
      {"Depthwise_Conv2D_K3x3_S1x1_D1x1_AVX_C4HW4_FLOAT_M1", 3, 1, F::kAVX, L::kC4HW4},
      {"Depthwise_Conv2D_K3x3_S2x2_D1x1_AVX_C4HW4_FLOAT_M1", 3, 2, F::kAVX, L::kC4HW4},
      {"Depthwise_Conv2D_K3x3_S1x1_D1x1_AVX_C8HW8_FLOAT_M1", 3, 1, F::kAVX, L::kC8HW8},
      {"Depthwise_Conv2D_K3x3_S2x2_D1x1_AVX_C8HW8_FLOAT_M1", 3, 2, F::kAVX, L::kC8HW8},
      {"Depthwise_Conv2D_K5x5_S1x1_D1x1_AVX_C8HW8_FLOAT_M1", 5, 1, F::kAVX, L::kC8HW8},
      {"Depthwise_Conv2D_K5x5_S2x2_D1x1_AVX_C8HW8_FLOAT_M1", 5, 2, F::kAVX, L::kC8HW8},
  };
  for (const auto& m : depthwise) {
    b.Add(m.name, C, m.family, m.layout, m.layout, 15, Conv(m.k, m.k, m.s, m.s, 1, -1, false));
  }

  // Transposed convolutions.
  const auto T = LAYER_CONVTRANSPOSE2D;
  b.Add("ConvTranspose2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1", T, F::kFallback, L::kPlanar, L::kPlanar, 90);
  b.Add("ConvTranspose2d_K3x3_D1x1_G1_SSE_CHW_FLOAT_M1", T, F::kSSE, L::kPlanar, L::kPlanar, 30, Transposed3x3());
  b.Add("ConvTranspose2d_K3x3_D1x1_G1_SSE_C4HW4_FLOAT_M1", T, F::kSSE, L::kC4HW4, L::kC4HW4, 28, Transposed3x3());
  b.Add("ConvTranspose2d_K3x3_D1x1_G1_AVX_C8HW8_FLOAT_M1", T, F::kAVX, L::kC8HW8, L::kC8HW8, 25, Transposed3x3());

  // One-dimensional convolutions (CL is planar).
  b.Add("Conv1D_Kn_Sn_Dn_Gn_Fallback_CL_Float_M1", LAYER_CONV1D, F::kFallback, L::kPlanar, L::kPlanar, 90);
  b.Add("Conv1d_K3_S1_D1_G1_AVX_CL_FLOAT_M1", LAYER_CONV1D, F::kAVX, L::kPlanar, L::kPlanar, 20, Conv1d3());
}

void DenseRules(RuleBuilder& b) {
  const auto FC = LAYER_FULLCONNECTION;
  b.Add("FullConnection_Fallback_C_Float_M1", FC, F::kFallback, L::kAny, L::kPlanar, 90, FlatVector());
  b.Add("FullConnection_SGEMM_C_Float_M1", FC, F::kSGEMM, L::kAny, L::kPlanar, 30, FlatVector());
  b.Add("FullConnection_SSE_C_Float_M1", FC, F::kSSE, L::kAny, L::kPlanar, 40, FlatVector());
  b.Add("FullConnection_SSE_C44_Float_M1", FC, F::kSSE, L::kAny, L::kPlanar, 35, All({FlatVector(), FeatureMultiple(4)}));
  b.Add("FullConnection_SSE_BC_Float_M1", FC, F::kSSE, L::kPlanar, L::kPlanar, 40);
  b.Add("FullConnection_AVX_C_Float_M1", FC, F::kAVX, L::kAny, L::kPlanar, 30, FlatVector());
  b.Add("FullConnection_AVX_C_Float_M2", FC, F::kAVX, L::kAny, L::kPlanar, 28, FlatVector());
  b.Add("FullConnection_AVX_C_Float_M3", FC, F::kAVX, L::kAny, L::kPlanar, 29, FlatVector());
  b.Add("FullConnection_AVX_C88_Float_M1", FC, F::kAVX, L::kAny, L::kPlanar, 25, All({FlatVector(), FeatureMultiple(8)}));
  // The blocked-map members (FullConnection_SSE_C4HW4_Float_M1,
  // FullConnection_AVX_C8HW8_Float_M1) give [N, 1, 1] or a blocked vector
  // instead of the [N] a Gemm gives; the flat members read a one-pixel map.

  const auto R = [&](const char* op, std::uint16_t record) {
    b.Add(std::string(op) + "_Fallback_SC_F32_M1", record, F::kFallback, L::kPlanar, L::kPlanar, 90);
    b.Add(std::string(op) + "_SSE_SC_F32_M1", record, F::kSSE, L::kPlanar, L::kPlanar, 40);
    b.Add(std::string(op) + "_SGEMM_SC_F32_M1", record, F::kSGEMM, L::kPlanar, L::kPlanar, 30);
  };
  R("RNN", LAYER_RNN);
  R("LSTM", LAYER_LSTM);
  R("GRU", LAYER_GRU);
  b.Add("GRU_SSE_SGEMM_SC_F32_M2", LAYER_GRU, F::kSSE, L::kPlanar, L::kPlanar, 25);
}

void ElementRules(RuleBuilder& b) {
  const auto A = LAYER_ACTIVATION;
  const struct {
    const char* op;
    std::uint16_t code;
    bool sse, avx;
    bool sse_approx, avx_approx;
  } acts[] = {
      {"ReLU", ACTIVATION_RELU, true, true, false, false},
      {"ReLU6", ACTIVATION_RELU6, true, true, false, false},
      // The SSE sigmoid and tanh use a bit-pattern exponential (a few percent off).
      {"Sigmoid", ACTIVATION_SIGMOID, true, true, true, false},
      {"TanH", ACTIVATION_TANH, true, false, true, false},
      {"HSigmoid", ACTIVATION_HSIGMOID, true, false, false, false},
      {"HSwish", ACTIVATION_HSWISH, true, true, false, false},
      {"Leaky", ACTIVATION_LEAKY, true, true, false, false},
      {"PReLU", ACTIVATION_PRELU, true, true, false, false},
      {"Linear", ACTIVATION_LINEAR, false, false, false, false},
  };
  for (const auto& a : acts) {
    // PReLU kernels work in place.
    const Constraint c = a.code == ACTIVATION_PRELU ? All({Activation(a.code), InPlace()}) : Activation(a.code);
    b.Add(std::string(a.op) + "_Fallback_Float_M1", A, F::kFallback, L::kAny, L::kAny, 90, c);
    if (a.sse) b.Add(std::string(a.op) + "_SSE_Float_M1", A, F::kSSE, L::kAny, L::kAny, 40, c, a.sse_approx);
    if (a.avx) b.Add(std::string(a.op) + "_AVX_Float_M1", A, F::kAVX, L::kAny, L::kAny, 30, c, a.avx_approx);
  }
  b.Add("ReLU_Inplace_SSE_Float_M1", A, F::kSSE, L::kAny, L::kAny, 35, All({Activation(ACTIVATION_RELU), InPlace()}));
  b.Add("HSigmoid_Inplace_SSE_Float_M1", A, F::kSSE, L::kAny, L::kAny, 35, All({Activation(ACTIVATION_HSIGMOID), InPlace()}));

  const auto E = LAYER_ELEMENTWISE;
  b.Add("Elementwise_Fallback_Float_M1", E, F::kFallback, L::kAny, L::kAny, 90);
  const struct {
    const char* op;
    std::uint16_t code;
  } ops[] = {{"Add", ELEMENTWISE_ADD}, {"Sub", ELEMENTWISE_SUB}, {"Mul", ELEMENTWISE_MUL}, {"Div", ELEMENTWISE_DIV}};
  for (const auto& o : ops) {
    b.Add(std::string("Elementwise_") + o.op + "_SSE_Float_M1", E, F::kSSE, L::kAny, L::kAny, 40, ElementOp(o.code));
    b.Add(std::string("Elementwise_") + o.op + "_AVX_Float_M1", E, F::kAVX, L::kAny, L::kAny, 30, ElementOp(o.code));
  }
  const auto BR = LAYER_BROADCAST;
  b.Add("BroadcastOperator_Fallback_Float_M1", BR, F::kFallback, L::kAny, L::kAny, 90, BlockedImages());
  b.Add("BroadcastOperator_C4114_Mul_C4HW4_AVX_Float_M1", BR, F::kAVX, L::kC4HW4, L::kC4HW4, 30, PerChannelMul());
  b.Add("BroadcastOperator_C8118_Mul_C8HW8_AVX_Float_M1", BR, F::kAVX, L::kC8HW8, L::kC8HW8, 30, PerChannelMul());
  b.Add("TensorArithmetic_Fallback_M1", LAYER_TENSOR_ARITHMETIC, F::kFallback, L::kPlanar, L::kPlanar, 90);

  const auto MP = LAYER_MAXPOOL2D, AP = LAYER_AVGPOOL2D;
  b.Add("Pooling2D_Max_Fallback_Float_M1", MP, F::kFallback, L::kPlanar, L::kPlanar, 90);
  b.Add("Pooling2D_Avg_Fallback_Float_M1", AP, F::kFallback, L::kPlanar, L::kPlanar, 90);
  b.Add("AdaptivePooling2D_Avg_Fallback_CHW_Float_M1", LAYER_ADAPTIVE_AVGPOOL2D, F::kFallback, L::kPlanar, L::kPlanar, 90);
  const struct {
    const char* name;
    bool max;
    int k, s;
    F family;
    L layout;
  } pools[] = {
      {"Pooling2D_Max_K2x2_S2x2_SSE_CHW_Float_M1", true, 2, 2, F::kSSE, L::kPlanar},
      {"Pooling2D_Max_K3x3_S2x2_SSE_CHW_Float_M1", true, 3, 2, F::kSSE, L::kPlanar},
      {"Pooling2D_Avg_K2x2_S2x2_SSE_CHW_Float_M1", false, 2, 2, F::kSSE, L::kPlanar},
      {"Pooling2D_Avg_K3x3_S2x2_SSE_CHW_Float_M1", false, 3, 2, F::kSSE, L::kPlanar},
      {"Pooling2D_Avg_K7x7_S1x1_SSE_CHW_Float_M1", false, 7, 1, F::kSSE, L::kPlanar},
      {"Pooling2D_Avg_K4x4_S4x4_SSE_CHW_Float_M1", false, 4, 4, F::kSSE, L::kPlanar},
      {"Pooling2D_Avg_K4x4_S4x4_SSE_C4HW4_Float_M1", false, 4, 4, F::kSSE, L::kC4HW4},
      {"Pooling2D_Avg_K2x2_S2x2_AVX_C8HW8_Float_M1", false, 2, 2, F::kAVX, L::kC8HW8},
      {"Pooling2D_Avg_K3x3_S2x2_AVX_C8HW8_Float_M1", false, 3, 2, F::kAVX, L::kC8HW8},
      {"Pooling2D_Avg_K4x4_S4x4_AVX_C8HW8_Float_M1", false, 4, 4, F::kAVX, L::kC8HW8},
      {"Pooling2D_Avg_K4x4_S1x1_AVX_C8HW8_Float_M1", false, 4, 1, F::kAVX, L::kC8HW8},
      {"Pooling2D_Avg_K7x7_S1x1_AVX_C8HW8_Float_M1", false, 7, 1, F::kAVX, L::kC8HW8},
      {"Pooling2D_Avg_K8x8_S1x1_AVX_C8HW8_Float_M1", false, 8, 1, F::kAVX, L::kC8HW8},
      {"Pooling2D_Max_K2x2_S2x2_AVX_C8HW8_Float_M1", true, 2, 2, F::kAVX, L::kC8HW8},
      {"Pooling2D_Max_K3x3_S2x2_AVX_C8HW8_Float_M1", true, 3, 2, F::kAVX, L::kC8HW8},
  };
  for (const auto& p : pools) {
    b.Add(p.name, p.max ? MP : AP, p.family, p.layout, p.layout, p.family == F::kAVX ? 20 : 25, FixedPool(p.k, p.s));
  }
  b.Add("Input_Fallback_M1", LAYER_INPUT, F::kFallback, L::kAny, L::kAny, 0);
}

// Families whose names are not fixed yet: the operation word of the name.
void OperationRules(RuleBuilder& b) {
  b.Add("Upsampling2D_Fallback_CHW_Float_M1", LAYER_UPSAMPLE2D, F::kFallback, L::kPlanar, L::kPlanar, 90);
  const struct {
    const char* word;
    std::uint16_t record;
  } words[] = {
      {"Upsampling2D", LAYER_UPSAMPLE2D}, {"Upsample2D", LAYER_UPSAMPLE2D}, {"Upsample2d", LAYER_UPSAMPLE2D},
      {"BatchNorm2d", LAYER_BATCHNORM2D}, {"BatchNorm2D", LAYER_BATCHNORM2D}, {"BatchNorm", LAYER_BATCHNORM2D},
      {"BatchNorm1d", LAYER_BATCHNORM1D}, {"BatchNorm1D", LAYER_BATCHNORM1D}, {"BatchNorm", LAYER_BATCHNORM1D},
      {"InstanceNorm2d", LAYER_INSTANCENORM2D}, {"InstanceNorm2D", LAYER_INSTANCENORM2D}, {"InstanceNorm", LAYER_INSTANCENORM2D},
      {"Concatenate", LAYER_CONCATENATE}, {"Concat", LAYER_CONCATENATE},
      {"TensorReshape", LAYER_TENSOR_RESHAPE}, {"Reshape", LAYER_TENSOR_RESHAPE},
      {"TensorTranspose", LAYER_TENSOR_TRANSPOSE}, {"Transpose", LAYER_TENSOR_TRANSPOSE}, {"Permute", LAYER_TENSOR_TRANSPOSE},
      {"TensorSqueeze", LAYER_TENSOR_SQUEEZE}, {"Squeeze", LAYER_TENSOR_SQUEEZE},
      {"TensorUnSqueeze", LAYER_TENSOR_UNSQUEEZE}, {"TensorUnsqueeze", LAYER_TENSOR_UNSQUEEZE},
      {"UnSqueeze", LAYER_TENSOR_UNSQUEEZE}, {"Unsqueeze", LAYER_TENSOR_UNSQUEEZE},
      {"TensorExpand", LAYER_TENSOR_EXPAND}, {"Expand", LAYER_TENSOR_EXPAND},
      {"TensorSlice", LAYER_TENSOR_SLICE}, {"Slice", LAYER_TENSOR_SLICE},
      {"TensorGetItem", LAYER_TENSOR_GETITEM}, {"GetItem", LAYER_TENSOR_GETITEM},
      {"PixelShuffle", LAYER_PIXELSHUFFLE}, {"SpaceToDepth", LAYER_SPACE_TO_DEPTH},
      {"Pad2d", LAYER_PAD2D}, {"Pad2D", LAYER_PAD2D}, {"Padding2D", LAYER_PAD2D}, {"Pad", LAYER_PAD2D},
      {"Pad1d", LAYER_PAD1D}, {"Pad1D", LAYER_PAD1D}, {"Padding1D", LAYER_PAD1D}, {"Pad", LAYER_PAD1D},
      {"Softmax", LAYER_SOFTMAX}, {"SoftMax", LAYER_SOFTMAX},
      {"Clip", LAYER_CLIP},
      {"Gemm", LAYER_GEMM}, {"GEMM", LAYER_GEMM},
      {"GridSample", LAYER_GRIDSAMPLE},
      {"AdaptivePooling2D", LAYER_ADAPTIVE_MAXPOOL2D},
  };
  for (const auto& w : words) b.Operation(w.word, w.record);
}

std::vector<KernelRule> BuildRules() {
  std::vector<KernelRule> rules;
  RuleBuilder b{&rules};
  ConvolutionRules(b);
  DenseRules(b);
  ElementRules(b);
  OperationRules(b);
  return rules;
}

std::vector<std::string> Fields(const std::string& key) {
  std::vector<std::string> out;
  std::string field;
  for (char c : key) {
    if (c == '_') {
      out.push_back(field);
      field.clear();
    } else {
      field += c;
    }
  }
  out.push_back(field);
  return out;
}

}  // namespace

const std::vector<KernelRule>& KernelRules() {
  static const auto* rules = new std::vector<KernelRule>(BuildRules());
  return *rules;
}

std::vector<const KernelRule*> RulesFor(std::uint16_t record) {
  std::vector<const KernelRule*> out;
  for (const KernelRule& r : KernelRules()) {
    if (r.record == record) out.push_back(&r);
  }
  return out;
}

std::vector<KernelRule> RulesForKey(const std::string& key) {
  std::vector<KernelRule> out;
  for (const KernelRule& r : KernelRules()) {
    if (!r.by_operation && r.name == key) out.push_back(r);
  }
  if (!out.empty()) return out;
  const std::vector<std::string> fields = Fields(key);
  for (const KernelRule& r : KernelRules()) {
    if (!r.by_operation || fields.empty() || fields[0] != r.name) continue;
    KernelRule rule = r;
    rule.name = key;
    rule.by_operation = false;
    rule.in = rule.out = L::kPlanar;
    bool sse = false, avx = false, sgemm = false;
    for (const std::string& f : fields) {
      if (f == "SSE") sse = true;
      if (f == "AVX") avx = true;
      if (f == "SGEMM") sgemm = true;
      if (f == "C4HW4") rule.in = rule.out = L::kC4HW4;
      if (f == "C8HW8") rule.in = rule.out = L::kC8HW8;
    }
    rule.family = avx ? F::kAVX : sse ? F::kSSE : sgemm ? F::kSGEMM : F::kFallback;
    rule.rank = avx ? 30 : sse ? 40 : sgemm ? 35 : 90;
    out.push_back(rule);
  }
  return out;
}

std::string WaitsFor(std::uint16_t record) {
  std::vector<std::string> names;
  for (const KernelRule* r : RulesFor(record)) names.push_back(r->by_operation ? r->name + "_*" : r->name);
  if (names.empty()) return "a kernel for layer type " + std::to_string(record) + " (" +
                            LayerTypeToString(static_cast<ENUM_TYPE_LAYER>(record)) + ")";
  std::string text;
  const std::size_t shown = std::min<std::size_t>(names.size(), 3);
  for (std::size_t k = 0; k < shown; ++k) text += (k ? ", " : "") + names[k];
  if (names.size() > shown) text += ", ...";
  return text;
}

}  // namespace convert
}  // namespace tarn
