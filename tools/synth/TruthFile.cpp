// SPDX-License-Identifier: GPL-3.0-or-later
/// \file truth.json: writing in a fixed key order and reading back.
#include "tools/synth/TruthFile.h"

#include <fstream>
#include <sstream>

#include "tools/synth/Json.h"

namespace astrivelle::synth {

bool Affine::Inverse(Affine* out) const {
    const double det = m[0] * m[4] - m[1] * m[3];
    if (det == 0)
        return false;
    Affine r;
    r.m[0] = m[4] / det;
    r.m[1] = -m[1] / det;
    r.m[3] = -m[3] / det;
    r.m[4] = m[0] / det;
    r.m[2] = -(r.m[0] * m[2] + r.m[1] * m[5]);
    r.m[5] = -(r.m[3] * m[2] + r.m[4] * m[5]);
    *out = r;
    return true;
}

namespace {

void FileList(JsonWriter& w, const char* key, const std::vector<std::string>& files) {
    w.Key(key).BeginArray();
    for (const auto& f : files)
        w.String(f);
    w.EndArray();
}

} // namespace

std::string TruthToJson(const Truth& t) {
    JsonWriter w;
    w.BeginObject();
    w.Key("seed").Integer(static_cast<long long>(t.seed));
    w.Key("width").Integer(t.width);
    w.Key("height").Integer(t.height);
    w.Key("frames").BeginArray();
    for (const FrameTruth& f : t.frames) {
        w.BeginObject();
        w.Key("index").Integer(f.index);
        w.Key("file").String(f.file);
        w.Key("dx").Number(f.dx);
        w.Key("dy").Number(f.dy);
        w.Key("rotationDeg").Number(f.rotationDeg);
        w.Key("flip").String(f.flip);
        w.Key("fwhm").Number(f.fwhm);
        w.Key("skyLevel").Number(f.skyLevel);
        w.Key("skyGradient").NumberArray(f.skyGradient, 2);
        w.Key("transform").NumberArray(f.transform.m, 6);
        w.EndObject();
    }
    w.EndArray();
    w.Key("stars").BeginArray();
    for (const StarTruth& s : t.stars) {
        w.BeginObject();
        w.Key("x").Number(s.x);
        w.Key("y").Number(s.y);
        w.Key("flux").Number(s.flux);
        w.Key("saturated").Bool(s.saturated);
        w.Key("color").NumberArray(s.color, 3);
        w.EndObject();
    }
    w.EndArray();
    w.Key("sky").BeginObject();
    w.Key("level").Number(t.skyLevel);
    w.Key("gradient").NumberArray(t.skyGradient, 2);
    w.Key("color").NumberArray(t.skyColor, 3);
    w.Key("vignetting").BeginObject();
    w.Key("model").String("(1+(r/r0)^2)^-2");
    w.Key("cx").Number(t.vignetteCx);
    w.Key("cy").Number(t.vignetteCy);
    w.Key("r0").Number(t.vignetteR0);
    w.EndObject();
    w.EndObject();
    w.Key("bias").Number(t.bias);
    w.Key("readNoise").Number(t.readNoise);
    w.Key("gain").Number(t.gain);
    w.Key("darkCurrent").Number(t.darkCurrent);
    w.Key("exposure").Number(t.exposure);
    w.Key("bayer").String(t.bayer);
    w.Key("trailFrame").Integer(t.trailFrame);
    // Further detail, after the fields above.
    w.Key("psf").BeginObject();
    w.Key("model").String("moffat");
    w.Key("beta").Number(3.0);
    w.Key("pixelIntegrated").Bool(true);
    w.EndObject();
    w.Key("trail").BeginObject();
    w.Key("line").NumberArray(t.trail, 4);
    w.Key("peak").Number(t.trailPeak);
    w.Key("sigma").Number(t.trailSigma);
    w.EndObject();
    w.Key("columnSigma").Number(t.columnSigma);
    w.Key("prnuSigma").Number(t.prnuSigma);
    w.Key("flatLevel").Number(t.flatLevel);
    w.Key("flatExposure").Number(t.flatExposure);
    w.Key("ccdTemp").Number(t.ccdTemp);
    w.Key("format").String(t.format);
    w.Key("noiseless").Bool(t.noiseless);
    w.Key("saturationLevel").Number(65535);
    w.Key("hotPixels").BeginArray();
    for (const HotPixelTruth& h : t.hotPixels) {
        const double v[3] = {static_cast<double>(h.x), static_cast<double>(h.y), h.rate};
        w.NumberArray(v, 3);
    }
    w.EndArray();
    FileList(w, "darks", t.darks);
    FileList(w, "flats", t.flats);
    FileList(w, "flatDarks", t.flatDarks);
    FileList(w, "biasFrames", t.biasFrames);
    w.EndObject();
    return w.Text();
}

bool WriteTruth(const std::string& path, const Truth& truth, std::string* error) {
    std::ofstream out(path, std::ios::binary);
    out << TruthToJson(truth);
    out.close();
    if (!out) {
        *error = "could not write " + path;
        return false;
    }
    return true;
}

namespace {

bool Numbers(const JsonValue* v, double* out, int count) {
    if (!v || v->type != JsonValue::Array || static_cast<int>(v->items.size()) != count)
        return false;
    for (int i = 0; i < count; ++i) {
        if (v->items[i].type != JsonValue::Number)
            return false;
        out[i] = v->items[i].number;
    }
    return true;
}

bool Need(const JsonValue& obj, const char* key, double* out, std::string* error) {
    const JsonValue* v = obj.Find(key);
    if (!v || v->type != JsonValue::Number) {
        *error = std::string("truth has no number \"") + key + "\"";
        return false;
    }
    *out = v->number;
    return true;
}

void Strings(const JsonValue* v, std::vector<std::string>* out) {
    out->clear();
    if (v && v->type == JsonValue::Array)
        for (const auto& item : v->items)
            if (item.type == JsonValue::String)
                out->push_back(item.string);
}

} // namespace

bool TruthFromJson(const std::string& text, Truth* truth, std::string* error) {
    JsonValue root;
    if (!ParseJson(text, &root, error))
        return false;
    if (root.type != JsonValue::Object) {
        *error = "truth is not a JSON object";
        return false;
    }
    Truth t;
    double v = 0;
    if (!Need(root, "seed", &v, error))
        return false;
    t.seed = static_cast<std::uint64_t>(v);
    if (!Need(root, "width", &v, error))
        return false;
    t.width = static_cast<int>(v);
    if (!Need(root, "height", &v, error))
        return false;
    t.height = static_cast<int>(v);
    const JsonValue* frames = root.Find("frames");
    if (!frames || frames->type != JsonValue::Array) {
        *error = "truth has no \"frames\" array";
        return false;
    }
    for (const JsonValue& f : frames->items) {
        FrameTruth ft;
        if (!Need(f, "index", &v, error))
            return false;
        ft.index = static_cast<int>(v);
        ft.file = f.StringOr("file", "");
        ft.dx = f.NumberOr("dx", 0);
        ft.dy = f.NumberOr("dy", 0);
        ft.rotationDeg = f.NumberOr("rotationDeg", 0);
        ft.flip = f.StringOr("flip", "none");
        if (!Need(f, "fwhm", &ft.fwhm, error))
            return false;
        ft.skyLevel = f.NumberOr("skyLevel", 0);
        Numbers(f.Find("skyGradient"), ft.skyGradient, 2);
        if (!Numbers(f.Find("transform"), ft.transform.m, 6)) {
            *error = "frame " + std::to_string(ft.index) + " has no 6-number \"transform\"";
            return false;
        }
        t.frames.push_back(ft);
    }
    const JsonValue* stars = root.Find("stars");
    if (!stars || stars->type != JsonValue::Array) {
        *error = "truth has no \"stars\" array";
        return false;
    }
    t.stars.reserve(stars->items.size());
    for (const JsonValue& s : stars->items) {
        StarTruth st;
        if (!Need(s, "x", &st.x, error) || !Need(s, "y", &st.y, error) ||
            !Need(s, "flux", &st.flux, error))
            return false;
        const JsonValue* sat = s.Find("saturated");
        st.saturated = sat && sat->type == JsonValue::Bool && sat->boolean;
        Numbers(s.Find("color"), st.color, 3);
        t.stars.push_back(st);
    }
    if (const JsonValue* sky = root.Find("sky")) {
        t.skyLevel = sky->NumberOr("level", 0);
        Numbers(sky->Find("gradient"), t.skyGradient, 2);
        Numbers(sky->Find("color"), t.skyColor, 3);
        if (const JsonValue* vig = sky->Find("vignetting")) {
            t.vignetteCx = vig->NumberOr("cx", 0);
            t.vignetteCy = vig->NumberOr("cy", 0);
            t.vignetteR0 = vig->NumberOr("r0", 1);
        }
    }
    if (!Need(root, "bias", &t.bias, error) || !Need(root, "readNoise", &t.readNoise, error) ||
        !Need(root, "gain", &t.gain, error) || !Need(root, "darkCurrent", &t.darkCurrent, error) ||
        !Need(root, "exposure", &t.exposure, error))
        return false;
    t.bayer = root.StringOr("bayer", "MONO");
    t.trailFrame = static_cast<int>(root.NumberOr("trailFrame", -1));
    if (const JsonValue* trail = root.Find("trail")) {
        Numbers(trail->Find("line"), t.trail, 4);
        t.trailPeak = trail->NumberOr("peak", 0);
        t.trailSigma = trail->NumberOr("sigma", 0);
    }
    t.columnSigma = root.NumberOr("columnSigma", 0);
    t.prnuSigma = root.NumberOr("prnuSigma", 0);
    t.flatLevel = root.NumberOr("flatLevel", 0);
    t.flatExposure = root.NumberOr("flatExposure", 0);
    t.ccdTemp = root.NumberOr("ccdTemp", -10);
    t.format = root.StringOr("format", "fits16");
    if (const JsonValue* n = root.Find("noiseless"))
        t.noiseless = n->type == JsonValue::Bool && n->boolean;
    if (const JsonValue* hot = root.Find("hotPixels"); hot && hot->type == JsonValue::Array)
        for (const JsonValue& h : hot->items) {
            double xyz[3];
            if (Numbers(&h, xyz, 3))
                t.hotPixels.push_back({static_cast<int>(xyz[0]), static_cast<int>(xyz[1]), xyz[2]});
        }
    Strings(root.Find("darks"), &t.darks);
    Strings(root.Find("flats"), &t.flats);
    Strings(root.Find("flatDarks"), &t.flatDarks);
    Strings(root.Find("biasFrames"), &t.biasFrames);
    *truth = std::move(t);
    return true;
}

bool ReadTruth(const std::string& path, Truth* truth, std::string* error) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        *error = "cannot open " + path;
        return false;
    }
    std::stringstream ss;
    ss << in.rdbuf();
    if (!TruthFromJson(ss.str(), truth, error)) {
        *error = path + ": " + *error;
        return false;
    }
    return true;
}

} // namespace astrivelle::synth
