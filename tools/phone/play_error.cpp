// SPDX-License-Identifier: GPL-2.0-only
#include "phone/play_error.h"

#include "zelk/ZelkApi.h"

namespace phone {

const char* PlayErrorText(uint32_t error) {
  switch (error) {
    case ZELK_ERROR_FILE_OPEN:
      return "it is not a readable WAV file";
    case ZELK_ERROR_FILE_READ:
      return "it is cut short";
    case ZELK_ERROR_BAD_FORMAT:
      return "it is not 8000 Hz mono in a telephone format";
    default:
      return "there is no memory for it";
  }
}

}  // namespace phone
