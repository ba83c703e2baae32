// The label table fed from the game's glLabelObjectEXT and glDelete* calls:
// each record of the input is one call, with the label text of its length.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

#include "games/LabelTracker.h"

using velour::games::LabelTracker;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    LabelTracker tracker("fuzz");
    for (const char* label : {"gamePlay", "lobby", "crosshair", "hud", ""}) tracker.addLabel(label);
    size_t at = 0;
    // A record: operation, type, object, signed length, then the label bytes.
    while (size - at >= 4) {
        const uint8_t op = data[at], type = data[at + 1], object = data[at + 2];
        const int length = static_cast<int8_t>(data[at + 3]);
        at += 4;
        const size_t available = size - at;
        const size_t taken = length > 0 ? std::min<size_t>(size_t(length), available) : available;
        // The game's buffer: exactly the bytes given, terminated only when
        // the call says to measure.
        std::vector<char> label(data + at, data + at + taken);
        if (length <= 0) label.push_back('\0');
        at += taken;
        std::lock_guard<std::mutex> lock(tracker.mutex);
        switch (op % 4) {
            case 0:
                tracker.trackObject(type, object, length > 0 ? int(taken) : length,
                                    label.empty() ? nullptr : label.data());
                break;
            case 1:
                tracker.trackObjectAs(type, object,
                                      LabelTracker::labelText(int(taken), label.data()));
                break;
            case 2: {
                // A glDelete* call: `length` names from `object` on.
                std::vector<unsigned> names;
                for (int i = 0; i < length; ++i) names.push_back(object + unsigned(i));
                tracker.forgetObjects(type, length, names.empty() ? nullptr : names.data());
                break;
            }
            default:
                break;
        }
        if (op % 4 == 3) {
            tracker.mutex.unlock();
            tracker.findLabel(type, object);
            tracker.mutex.lock();
        }
    }
    return 0;
}
