// The matrices of YUV.
#pragma once

#include "qn/platform/types.h"

namespace qn {

struct YuvMatrix {
  double luma[3];  // of red, green, blue; the same in the next two
  double u[3];     // of full swing, 224/219 of what luma has
  double v[3];
  double redV;  // the way back
  double greenV;
  double greenU;
  double blueU;
  // The way back for chroma of the swing of luma: what the general converters start from.
  float plainBlueU;
  float plainGreenV;
  float plainGreenU;
  float plainRedV;
};

constexpr YuvMatrix kYuv601 = {{0.299, 0.587, 0.114},
                               {-0.172552, -0.338864, 0.511416},
                               {0.511416, -0.428259, -0.083156},
                               1.370705,
                               -0.69816,
                               -0.336419,
                               1.732446,
                               1.772f,
                               -0.7141f,
                               -0.3441f,
                               1.402f};
constexpr YuvMatrix kYuv709 = {{0.2126, 0.7152, 0.0722},
                               {-0.117216, -0.394199, 0.511416},
                               {0.511416, -0.46457, -0.046846},
                               1.539648,
                               -0.457651,
                               -0.183119,
                               1.81418,
                               1.8556f,
                               -0.4681f,
                               -0.1873f,
                               1.5748f};
constexpr YuvMatrix kYuv2020 = {{0.2627, 0.678, 0.0593},
                                {-0.142787, -0.368628, 0.511416},
                                {0.511416, -0.470298, -0.041118},
                                1.441685,
                                -0.558646,
                                -0.160926,
                                1.839404,
                                1.8814f,
                                -0.5714f,
                                -0.1646f,
                                1.4746f};

// That of a frame whose matrix nobody names.
constexpr const YuvMatrix& YuvMatrixBySize(int64_t width, int64_t height) {
  return height < 720 && width >= 704 && width <= 720 ? kYuv601 : kYuv709;
}

}  // namespace qn
