#include "tarn/utility/model_loader.h"

int TRN_Get_Core_Version(unsigned int& major, unsigned int& minor) {
  major = 1;
  minor = 0;
  return 0;
}
