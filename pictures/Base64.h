#pragma once

#include <string>

/// Bytes as text of letters, digits, "+", "/" and "=" (RFC 4648, section 4).
std::string base64(const std::string& bytes);
