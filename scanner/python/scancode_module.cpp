// import scancode: scancode::Scanner for Python. Frames come in as numpy
// arrays; results go out as dicts, lists, floats and bytes.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <cmath>

#include "scancode/scanner.h"

namespace py = pybind11;

namespace {

constexpr const char* kModuleDoc = R"(Finds QR codes in camera frames.

    import scancode
    scanner = scancode.Scanner(decode=True)
    result = scanner.scan(frame)        # numpy uint8: H x W grey, H x W x 3 BGR, H x W x 4 BGRA
    for box in result["boxes"]:
        print(box["x"], box["y"], box["w"], box["h"], box["listed"], box.get("text"))

A result is a dict:
  code      the library's result: 0 (codes found, zoom in "zoom" when one fits),
            -1 (nothing usable), -2 (one code, but no zoom keeps it whole)
  width, height  the frame as the library ran it (width cut to a multiple of 16,
            height to an even number)
  boxes     every box that survived suppression, best first: x, y, w, h in frame
            pixels; listed False for a box in the edge band, which the library
            counts but does not use; text (with decode) the code's text or None
  zoom      {"best_zoom", "max_edge_ratio"} or None
  straightened  bytes of the NV21 frame the library handed back with a code
            straightened, or None
  ms        the library's time for the frame

The library runs one frame at a time per process and keeps one frame size per
session; a Scanner starts a new session when the size changes. Errors raise
scancode.Error.)";

// Box edges as the library logged them, to the thousandth of a pixel,
// rather than their float's binary expansion.
double Logged(float v) {
    return std::round(static_cast<double>(v) * 1000.0) / 1000.0;
}

py::dict ToDict(const scancode::Result& r) {
    py::list boxes;
    for (const scancode::Box& b : r.boxes) {
        py::dict box;
        box["x"] = Logged(b.rect.x);
        box["y"] = Logged(b.rect.y);
        box["w"] = Logged(b.rect.width);
        box["h"] = Logged(b.rect.height);
        box["listed"] = b.listed;
        if (r.decoded) box["text"] = b.text.empty() ? py::object(py::none()) : py::str(b.text);
        boxes.append(box);
    }
    py::dict d;
    d["code"] = r.code;
    d["width"] = r.width;
    d["height"] = r.height;
    d["boxes"] = boxes;
    d["zoom"] = py::none();
    if (r.zoom) {
        py::dict zoom;
        zoom["best_zoom"] = r.zoom->bestZoom;
        zoom["max_edge_ratio"] = r.zoom->maxEdgeRatio;
        d["zoom"] = zoom;
    }
    d["straightened"] = py::none();
    if (!r.straightened.empty()) {
        d["straightened"] =
            py::bytes(reinterpret_cast<const char*>(r.straightened.data()), r.straightened.size());
    }
    d["ms"] = r.ms;
    return d;
}

// Sides beyond this are no camera's (and would overflow the picture's int sizes).
constexpr py::ssize_t kMaxSide = 1 << 16;

// The picture an array holds, without a copy; the array must outlive it.
cv::Mat PictureOf(const py::array& frame) {
    if (!py::isinstance<py::array_t<uint8_t>>(frame) ||
        !py::dtype::of<uint8_t>().is(frame.dtype())) {
        throw scancode::Error("a frame must be a numpy array of uint8, not " +
                              std::string(py::str(frame.dtype())));
    }
    const int channels = frame.ndim() == 2 ? 1 : frame.ndim() == 3 ? int(frame.shape(2)) : 0;
    if (channels != 1 && channels != 3 && channels != 4) {
        throw scancode::Error("a frame must be H x W (grey), H x W x 3 (BGR) or H x W x 4 (BGRA)");
    }
    if (frame.shape(0) > kMaxSide || frame.shape(1) > kMaxSide) {
        throw scancode::Error("a frame may be at most " + std::to_string(kMaxSide) +
                              " pixels on a side");
    }
    if (!(frame.flags() & py::array::c_style)) {
        throw scancode::Error("a frame must be C-contiguous (numpy.ascontiguousarray)");
    }
    return cv::Mat(int(frame.shape(0)), int(frame.shape(1)), CV_8UC(channels),
                   const_cast<void*>(frame.data()));
}

class PyScanner {
  public:
    PyScanner(const std::string& adapter, const std::string& model, bool decode)
        : scanner_(Options(adapter, model, decode)) {}

    py::dict Scan(const py::array& frame) {
        const cv::Mat picture = PictureOf(frame);
        scancode::Result r;
        {
            py::gil_scoped_release free;
            r = scanner_.Scan(picture);
        }
        return ToDict(r);
    }

    py::dict ScanNv21(const py::buffer& data, int width, int height) {
        const py::buffer_info info = data.request();
        if (info.itemsize != 1) throw scancode::Error("NV21 data must be bytes");
        py::ssize_t stride = 1;
        for (py::ssize_t i = info.ndim - 1; i >= 0; --i) {
            if (info.shape[i] > 1 && info.strides[i] != stride) {
                throw scancode::Error("NV21 data must be contiguous");
            }
            stride *= info.shape[i];
        }
        const size_t bytes = static_cast<size_t>(info.size);
        scancode::Result r;
        {
            py::gil_scoped_release free;
            r = scanner_.Scan(static_cast<const uint8_t*>(info.ptr), bytes, width, height);
        }
        return ToDict(r);
    }

    int sessions() const { return scanner_.sessions(); }

  private:
    static scancode::ScannerOptions Options(const std::string& adapter, const std::string& model,
                                            bool decode) {
        scancode::ScannerOptions o;
        o.adapterPath = adapter;
        o.modelPath = model;
        o.decode = decode;
        return o;
    }
    scancode::Scanner scanner_;
};

py::dict ScanFile(const std::string& path, bool decode) {
    cv::Mat picture;
    try {
        picture = scancode::ReadPicture(path);
    } catch (const scancode::Error& e) {
        throw scancode::Error(path + ": " + e.what());
    }
    PyScanner scanner("", "", decode);
    py::dict result = scanner.Scan(py::array(py::buffer_info(
        picture.data, 1, py::format_descriptor<uint8_t>::format(), 3,
        {picture.rows, picture.cols, 3},
        {static_cast<py::ssize_t>(picture.step[0]), py::ssize_t{3}, py::ssize_t{1}})));
    return result;
}

}  // namespace

PYBIND11_MODULE(scancode, m) {
    m.doc() = kModuleDoc;
    py::register_exception<scancode::Error>(m, "Error", PyExc_RuntimeError).attr("__doc__") =
        "What the module raises for a bad frame or file, or a library that cannot start;\n"
        "the message names the input and the reason.";
    m.attr("WIDTH_STEP") = scancode::kWidthStep;

    py::class_<PyScanner>(m, "Scanner",
                          "A session with the library. Frames of one size run in one session;\n"
                          "a frame of another size starts a new one.")
        .def(py::init<const std::string&, const std::string&, bool>(), py::arg("adapter") = "",
             py::arg("model") = "", py::arg("decode") = false,
             "Starts the library. adapter, model: paths of the adapter library and the model\n"
             "file (default: the library's own lookup); decode: read each box's code with\n"
             "zxing-cpp. Raises scancode.Error naming the adapter or model when it cannot\n"
             "start.")
        .def("scan", &PyScanner::Scan, py::arg("frame"),
             "Runs one picture: a numpy uint8 array, H x W grey, H x W x 3 BGR or\n"
             "H x W x 4 BGRA. Returns the result dict (see help(scancode)).")
        .def("scan_nv21", &PyScanner::ScanNv21, py::arg("data"), py::arg("width"),
             py::arg("height"),
             "Runs one NV21 frame: width * height * 3 / 2 bytes (bytes or a uint8 array),\n"
             "width a multiple of 16, height even. Returns the result dict.")
        .def_property_readonly("sessions", &PyScanner::sessions,
                               "Sessions opened so far (one more per change of frame size).");

    m.def("scan_file", &ScanFile, py::arg("path"), py::arg("decode") = true,
          "Reads a picture file and scans it with a Scanner of its own; decode reads each\n"
          "box's code. Raises scancode.Error naming the file when it cannot be read.");
}
