#include "pictures/PictureFile.h"

#include <filesystem>

#include "audio/OutputFile.h"
#include "pictures/PictureModule.h"
#include "pictures/PictureRenderer.h"

void writePicture(const std::string& path, const Drawing& drawing, bool overwrite) {
  Audio::OutputFile file(path, overwrite);
  file.write(std::filesystem::path(path).extension() == ".png" ? pngOf(drawing) : drawing.svg());
  file.finish();
}

std::string pngOf(const Drawing& drawing) {
  std::string png;
  const auto render = pictureFunction<decltype(zelkRenderSvg)>("zelkRenderSvg");
  render(drawing.svg(), drawing.width(), drawing.height(), png);
  return png;
}
