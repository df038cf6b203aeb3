#include "batch_runner.h"

#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <map>
#include <mutex>
#include <new>
#include <thread>

#include "image_io_error.h"
#include "image_writer.h"
#include "output_file.h"
#include "progress_bar.h"
#include "tool_options.h"

namespace oqa_tool {

namespace {

struct Job {
  std::string input;
  std::string target;  // as the user will read it
  std::string name;    // in the output folder
  Output_type type = Output_type::tiff;
  // Set when the job cannot run at all (its output name clashes).
  std::string planning_error;
};

struct Plan {
  std::vector<Job> jobs;
  std::optional<Output_folder> folder;
  std::vector<Protected_file> inputs;
};

struct Totals {
  std::mutex mutex;
  std::size_t done = 0;
  std::size_t failed = 0;
  std::uint64_t pixels = 0;
  double demosaic_seconds = 0.0;
  // Notes already given, each once a run.
  std::atomic<bool> noted_no_camera{false};
  std::atomic<bool> noted_buffer_output{false};
};

struct Converted {
  std::uint64_t pixels = 0;
  double demosaic_seconds = 0.0;
  // The job asked for steps that need camera data, or a picture, and did
  // not get them.
  bool lacked_camera = false;
  bool buffer_output = false;
};

// An error and the file it concerns: the input for reading problems, the
// output for writing problems.
struct Job_failure {
  std::string file;
  std::string problem;
};

bool names_folder(const std::string& output) {
  std::error_code ignored;  // an unreadable path is no folder; opening it says why
  return !output.empty() &&
         (output.back() == '/' || std::filesystem::is_directory(output, ignored));
}

// Fills `plan`, or returns the one line that stops the run.
std::string plan_jobs(const Tool_options& options, Plan& plan) {
  std::string folder = options.output;
  if (options.inputs.size() == 1 && !names_folder(options.output)) {
    const Output_place place = place_of(options.output);
    Job job{options.inputs.front(), options.output, place.name, options.type, ""};
    const std::optional<Output_type> by_name = output_type_of_path(options.output);
    if (by_name) {
      job.type = *by_name;
    } else if (!options.type_given) {
      return options.output +
             ": cannot tell the output type from the name; end it in .tif, .tiff, .png, .ppm, "
             ".fits or .raw, or give --type";
    }
    plan.jobs.push_back(job);
    folder = place.folder;
  } else {
    std::error_code code;
    std::filesystem::create_directories(options.output, code);
    if (code) {
      return options.output + ": cannot create the output folder: " + code.message();
    }
    std::map<std::string, std::string> claimed;  // name -> input
    for (const std::string& input : options.inputs) {
      const std::string name =
          std::filesystem::path(input).stem().string() + extension_of(options.type);
      Job job{input, (std::filesystem::path(options.output) / name).string(), name, options.type,
              ""};
      const auto [claim, fresh] = claimed.emplace(name, input);
      if (!fresh) {
        job.planning_error = "output " + job.target + " is already the output of " + claim->second;
      }
      plan.jobs.push_back(job);
    }
  }
  try {
    plan.folder.emplace(folder);
  } catch (const Image_io_error& error) {
    return options.output + ": " + error.what();
  }
  // Whatever name an input goes by, its device and inode give it away.
  for (const std::string& input : options.inputs) {
    struct stat status {};
    if (::stat(input.c_str(), &status) == 0) {
      plan.inputs.push_back({status.st_dev, status.st_ino, input});
    }
  }
  return {};
}

// Reads, demosaics, finishes and writes one file.
Converted convert(const Tool_options& options, const Plan& plan, const Job& job) {
  if (!job.planning_error.empty()) {
    throw Job_failure{job.input, job.planning_error};
  }
  std::optional<Atomic_output_file> output;
  try {
    output.emplace(*plan.folder, job.name, options.force, plan.inputs);
  } catch (const Image_io_error& error) {
    throw Job_failure{job.target, error.what()};
  }
  Mosaic_image image;
  try {
    image = read_mosaic_file(job.input, options.read);
  } catch (const Image_io_error& error) {
    throw Job_failure{job.input, error.what()};
  }
  const std::optional<QN_COLOR_FILTER_ARRAY_PHASE> phase =
      options.pattern ? options.pattern : image.phase;
  if (!phase) {
    throw Job_failure{job.input,
                      "the file does not record its Bayer pattern; give --pattern "
                      "RGGB|BGGR|GRBG|GBRG"};
  }
  const Demosaic_request request{*phase, options.origin_x, options.origin_y,
                                 format_for(job.type, options.buffer_layout), options.level};
  Colour_image result;
  const auto start = std::chrono::steady_clock::now();
  try {
    demosaic(image, request, result);
  } catch (const Image_io_error& error) {
    throw Job_failure{job.input, error.what()};
  }
  const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
  const bool picture = job.type != Output_type::library_buffer;
  Converted converted{static_cast<std::uint64_t>(result.width) * result.height, seconds.count(),
                      !image.camera.has_value(), !picture};
  const std::optional<Camera_data> camera = image.camera;
  result.notes = std::move(image.notes);
  image = Mosaic_image();  // free the input before the output is made
  try {
    if (picture) {
      finish_picture(result, camera, options.picture);
    }
  } catch (const Image_io_error& error) {
    throw Job_failure{job.input, error.what()};
  }
  try {
    write_image(job.type, output->descriptor(), result, options.write);
    output->commit();
  } catch (const Image_io_error& error) {
    throw Job_failure{job.target, error.what()};
  }
  return converted;
}

// Prints `line` the first time only.
void note_once(std::atomic<bool>& noted, Progress_bar& progress, const std::string& line) {
  if (!noted.exchange(true)) {
    progress.message("oqa-demosaic: note: " + line);
  }
}

void note_unused_steps(const Tool_options& options, const Job& job, const Converted& converted,
                       Totals& totals, Progress_bar& progress) {
  if (options.quiet) {
    return;
  }
  const char* step = options.picture.develop             ? "--develop"
                     : options.read.camera_raw.normalize ? "--normalize"
                                                         : nullptr;
  if (step != nullptr && converted.lacked_camera) {
    note_once(totals.noted_no_camera, progress,
              std::string(step) + " needs camera raw input; " + job.input +
                  " (and any other input without camera data) keeps the library's samples");
  }
  if (options.picture.develop && converted.buffer_output) {
    note_once(totals.noted_buffer_output, progress,
              "--develop does not apply to .raw outputs, which hold the library's buffer as is");
  }
}

void run_job(const Tool_options& options, const Plan& plan, const Job& job, Totals& totals,
             Progress_bar& progress) {
  std::optional<Job_failure> failure;
  Converted work;
  try {
    work = convert(options, plan, job);
    note_unused_steps(options, job, work, totals, progress);
  } catch (const Job_failure& caught) {
    failure = caught;
  } catch (const std::bad_alloc&) {
    failure = Job_failure{job.input, "out of memory"};
  } catch (const std::exception& error) {
    failure = Job_failure{job.input, error.what()};
  } catch (...) {
    failure = Job_failure{job.input, "unexpected error"};
  }
  {
    const std::lock_guard lock(totals.mutex);
    if (failure) {
      ++totals.failed;
    } else {
      ++totals.done;
      totals.pixels += work.pixels;
      totals.demosaic_seconds += work.demosaic_seconds;
    }
  }
  if (failure) {
    progress.message("oqa-demosaic: " + failure->file + ": " + failure->problem);
  }
  progress.advance();
}

}  // namespace

int run_batch(const Tool_options& given) {
  Tool_options options = given;
  Plan plan;
  const std::string planning_error = plan_jobs(options, plan);
  if (!planning_error.empty()) {
    std::fprintf(stderr, "oqa-demosaic: %s\n", planning_error.c_str());
    return 1;
  }
  const std::vector<Job>& jobs = plan.jobs;
  Totals totals;
  Progress_bar progress(jobs.size(), jobs.size() > 1 && !options.quiet);
  std::atomic<std::size_t> next{0};
  const auto worker = [&] {
    for (std::size_t index = next++; index < jobs.size(); index = next++) {
      run_job(options, plan, jobs[index], totals, progress);
    }
  };
  const std::size_t thread_count =
      std::clamp<std::size_t>(options.jobs, 1, std::max<std::size_t>(jobs.size(), 1));
  // The cores the files running at once leave free go to each file's own
  // work: developing and compressing.
  const unsigned cores = std::max(1U, std::thread::hardware_concurrency());
  const unsigned per_file = std::max(1U, cores / static_cast<unsigned>(thread_count));
  options.picture.threads = per_file;
  options.write.threads = per_file;
  std::vector<std::thread> threads;
  for (std::size_t i = 1; i < thread_count; ++i) {
    threads.emplace_back(worker);
  }
  worker();
  for (std::thread& thread : threads) {
    thread.join();
  }
  progress.finish();

  if (!options.quiet && jobs.size() > 1) {
    const double megapixels = static_cast<double>(totals.pixels) / 1e6;
    const double rate = totals.demosaic_seconds > 0.0 ? megapixels / totals.demosaic_seconds : 0.0;
    std::printf("%zu file%s done, %zu failed, %.1f Mpixel demosaiced at %.1f Mpixel/s\n",
                totals.done, totals.done == 1 ? "" : "s", totals.failed, megapixels, rate);
  }
  return totals.failed == 0 ? 0 : 1;
}

}  // namespace oqa_tool
