#include "kernel/cpu/fallback/recurrent/recurrent_step.h"

#include "tarn/utility/log.h"

namespace tarn {
namespace kernel {
namespace recurrent {

std::size_t StepScratch(CellKind kind, std::uint32_t hidden) {
  // simple: gh, s; LSTM: gh (4H), gates (4H), f*c, i*g, tanh(c');
  // GRU: gh (3H), r, z, r*gh_n, n, n-h, z*(n-h).
  const std::size_t per_hidden = kind == CellKind::kRNN ? 2 : (kind == CellKind::kLSTM ? 11 : 9);
  return per_hidden * hidden;
}

void InputProduct(const CellRoutines& r, const CellWeights& w, CellKind kind, const float* x, float* gi) {
  const std::uint32_t rows = GateCount(kind) * w.hidden;
  r.fc(x, w.in, rows, w.w_ih, w.b_ih, gi);
}

void RNNStep(const CellRoutines& r, const CellWeights& w, std::uint32_t activation, const float* gi, const float* h,
             float* scratch, float* h_out) {
  utility::Assert(activation == functional::kRNNActivationReLU || activation == functional::kRNNActivationTanh,
                  "Not Implemented.");
  const std::uint32_t H = w.hidden;
  float* gh = scratch;
  float* s = scratch + H;
  r.fc(h, H, H, w.w_hh, w.b_hh, gh);
  r.add(gi, gh, H, s);
  if (activation == functional::kRNNActivationReLU) {
    r.relu(s, H, h_out);
  } else {
    r.tanh(s, H, h_out);
  }
}

void LSTMStep(const CellRoutines& r, const CellWeights& w, const float* gi, const float* h, const float* c,
              float* scratch, float* h_out, float* c_out) {
  const std::uint32_t H = w.hidden, rows = 4 * H;
  float* gh = scratch;
  float* gates = gh + rows;
  float* fc = gates + rows;
  float* ig = fc + H;
  float* tc = ig + H;
  r.fc(h, H, rows, w.w_hh, w.b_hh, gh);
  r.add(gi, gh, rows, gates);
  float* i = gates;
  float* f = gates + H;
  float* g = gates + 2 * H;
  float* o = gates + 3 * H;
  r.sigmoid(i, H, i);
  r.sigmoid(f, H, f);
  r.tanh(g, H, g);
  r.sigmoid(o, H, o);
  // c may be c_out: it is read here, before the sum overwrites it.
  r.mul(f, c, H, fc);
  r.mul(i, g, H, ig);
  r.add(fc, ig, H, c_out);
  r.tanh(c_out, H, tc);
  r.mul(o, tc, H, h_out);
}

void GRUStep(const CellRoutines& r, const CellWeights& w, const float* gi, const float* h, float* scratch,
             float* h_out) {
  const std::uint32_t H = w.hidden;
  float* gh = scratch;
  float* rg = gh + 3 * H;
  float* z = rg + H;
  float* rn = z + H;
  float* n = rn + H;
  float* t = n + H;
  float* zt = t + H;
  r.fc(h, H, 3 * H, w.w_hh, w.b_hh, gh);
  r.add(gi, gh, H, rg);
  r.sigmoid(rg, H, rg);
  r.add(gi + H, gh + H, H, z);
  r.sigmoid(z, H, z);
  // The reset gate scales the hidden-side product including its bias.
  r.mul(rg, gh + 2 * H, H, rn);
  r.add(gi + 2 * H, rn, H, n);
  r.tanh(n, H, n);
  // h' = n - z * (n - h); h is last read here, so h_out may be h.
  r.sub(n, h, H, t);
  r.mul(z, t, H, zt);
  r.sub(n, zt, H, h_out);
}

namespace {

const float* FloatsOf(const std::shared_ptr<runtime::Tensor>& t, std::uint64_t count, const char* what) {
  utility::Assert(t != nullptr && t->shape.data_type == runtime::TensorShape::FLOAT32 &&
                      t->shape.location == runtime::TensorShape::MainMemory && t->shape.ElementCount() == count,
                  "The recurrent step needs %s as %llu floats in main memory.", what,
                  static_cast<unsigned long long>(count));
  return static_cast<const float*>(t->Data());
}

}  // namespace

functional::RecurrentTensors TensorStep(CellKind kind, const CellRoutines& r,
                                        const functional::RecurrentTensors& inputs, std::uint32_t in,
                                        std::uint32_t hidden, std::uint32_t has_bias, std::uint32_t activation,
                                        const std::shared_ptr<runtime::Tensor>& weight_ih,
                                        const std::shared_ptr<runtime::Tensor>& weight_hh,
                                        const std::shared_ptr<runtime::Tensor>& bias_ih,
                                        const std::shared_ptr<runtime::Tensor>& bias_hh,
                                        const std::shared_ptr<runtime::DeviceCPU>& device) {
  if (kind == CellKind::kRNN) {
    utility::Assert(activation == functional::kRNNActivationReLU || activation == functional::kRNNActivationTanh,
                    "Not Implemented.");
  }
  const bool lstm = kind == CellKind::kLSTM;
  utility::Assert(device != nullptr && in > 0 && hidden > 0, "The recurrent step needs a device and non-zero sizes.");
  utility::Assert(inputs.size() >= (lstm ? 3u : 2u), "The recurrent step needs the input and the state.");
  const std::uint64_t rows = std::uint64_t(GateCount(kind)) * hidden;
  CellWeights w{FloatsOf(weight_ih, rows * in, "weight_ih"),
                FloatsOf(weight_hh, rows * hidden, "weight_hh"),
                has_bias ? FloatsOf(bias_ih, rows, "bias_ih") : nullptr,
                has_bias ? FloatsOf(bias_hh, rows, "bias_hh") : nullptr,
                in,
                hidden};
  const float* x = FloatsOf(inputs[0], in, "the input");
  const float* h = FloatsOf(inputs[1], hidden, "the hidden state");
  const float* c = lstm ? FloatsOf(inputs[2], hidden, "the cell state") : nullptr;

  // The input-side product and the step's scratch in one vector.
  auto work = device->CreateF32CMainMemory(static_cast<unsigned>(rows + StepScratch(kind, hidden)));
  float* gi = work->DataAs<float>();
  float* scratch = gi + rows;
  auto h_out = device->CreateF32CMainMemory(hidden);
  InputProduct(r, w, kind, x, gi);
  switch (kind) {
    case CellKind::kRNN:
      RNNStep(r, w, activation, gi, h, scratch, h_out->DataAs<float>());
      return {h_out};
    case CellKind::kLSTM: {
      auto c_out = device->CreateF32CMainMemory(hidden);
      LSTMStep(r, w, gi, h, c, scratch, h_out->DataAs<float>(), c_out->DataAs<float>());
      return {h_out, c_out};
    }
    case CellKind::kGRU:
      GRUStep(r, w, gi, h, scratch, h_out->DataAs<float>());
      return {h_out};
  }
  return {};
}

}  // namespace recurrent
}  // namespace kernel
}  // namespace tarn
