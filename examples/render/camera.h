// A pinhole camera and the image plane it gives the eye-ray function.
#ifndef VTQR_EXAMPLES_RENDER_CAMERA_H_
#define VTQR_EXAMPLES_RENDER_CAMERA_H_

namespace render {

struct Camera {
  float eye[3];
  float at[3];  // the point looked at, in the middle of the image
  float up[3] = {0, 1, 0};
  float fovDegrees = 35;  // vertical field of view
};

// The three vectors vtqrCastEye_32f takes for an image of width x height samples: the
// direction from the eye to the centre of sample (0, 0), and the steps to the next sample along
// a row (rightwards) and down a column. The image plane lies at distance 1 from the eye, so
// the directions are about unit length.
struct ImagePlane {
  float origin[3];
  float dW[3];
  float dH[3];
};
ImagePlane MakeImagePlane(const Camera& camera, int width, int height);

// A camera looking at `centre` from the direction given by azimuth (degrees around the up
// axis y, 0 = from +z, 90 = from +x) and elevation (degrees above the horizontal), at the
// distance where a sphere of `radius` around the centre just fits the image of the given
// aspect ratio (width / height), with a small margin.
Camera OrbitCamera(const float centre[3], float radius, float azimuthDegrees,
                   float elevationDegrees, float fovDegrees, float aspect);

}  // namespace render

#endif  // VTQR_EXAMPLES_RENDER_CAMERA_H_
