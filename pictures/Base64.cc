#include "pictures/Base64.h"

#include <glib.h>

#include <memory>

std::string base64(const std::string& bytes) {
  const std::unique_ptr<char, void (*)(void*)> text(
      g_base64_encode(reinterpret_cast<const guchar*>(bytes.data()), bytes.size()), g_free);
  return text.get();
}
