#pragma once

/// The address of a function of PictureRenderer.h, whose module is loaded by the first call. Throws
/// DataError when it is not where it was installed.
void* addressOfPictureFunction(const char* name);

template <class Function>
Function* pictureFunction(const char* name) {
  return reinterpret_cast<Function*>(addressOfPictureFunction(name));
}
