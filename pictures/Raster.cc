#include "pictures/Raster.h"

#include "pictures/PictureModule.h"
#include "pictures/PictureRenderer.h"

std::string Raster::png() const {
  std::string png;
  const auto render = pictureFunction<decltype(zelkRenderPoints)>("zelkRenderPoints");
  render(points.data(), columns, rows, png);
  return png;
}
