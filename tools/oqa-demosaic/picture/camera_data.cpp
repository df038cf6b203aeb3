#include "camera_data.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace oqa_tool {

namespace {

bool is_printable(char character) { return character >= ' ' && character <= '~'; }

float clamped(float value, float low, float high) {
  return std::isfinite(value) ? std::clamp(value, low, high) : 0.0F;
}

template <std::size_t size>
void make_printable(char (&text)[size]) {
  const std::string clean = printable(std::string_view(text, strnlen(text, size - 1)), size - 1);
  std::memset(text, 0, size);
  std::memcpy(text, clean.data(), clean.size());
}

}  // namespace

std::string printable(std::string_view text, std::size_t max_length) {
  std::string clean(text.substr(0, max_length));
  std::replace_if(
      clean.begin(), clean.end(), [](char c) { return !is_printable(c); }, '?');
  clean.erase(clean.find_last_not_of(' ') + 1);
  return clean;
}

void make_safe(Camera_data& camera, int width, int height) {
  for (float& black : camera.black) {
    black = clamped(black, 0, 65535);
  }
  camera.white = clamped(camera.white, 0, 65535);
  for (auto* multipliers : {&camera.as_shot, &camera.daylight}) {
    for (float& multiplier : *multipliers) {
      multiplier = clamped(multiplier, 0, 1e4F);
    }
  }
  for (auto& row : camera.camera_to_srgb) {
    for (float& weight : row) {
      weight = clamped(weight, -1e3F, 1e3F);
    }
  }
  camera.flip &= 7;
  Crop& crop = camera.crop;
  crop.left = std::clamp(crop.left, 0, width);
  crop.top = std::clamp(crop.top, 0, height);
  crop.width = std::clamp(crop.width, 0, width - crop.left);
  crop.height = std::clamp(crop.height, 0, height - crop.top);
  // Less than the 2x2 every output needs is no crop the camera meant.
  if (crop.width < 2 || crop.height < 2) {
    crop = Crop{};
  }
}

void make_safe(Shot_metadata& shot) {
  make_printable(shot.make);
  make_printable(shot.model);
  make_printable(shot.date_time);
  for (float* number : {&shot.exposure_seconds, &shot.f_number, &shot.iso, &shot.focal_length_mm}) {
    *number = clamped(*number, 0, 1e7F);
  }
}

void make_safe(Header_card& card) {
  std::replace_if(
      card.begin(), card.end(), [](char c) { return !is_printable(c); }, '?');
}

}  // namespace oqa_tool
