#pragma once

#include <picojson.h>

#include <map>
#include <string>
#include <vector>

#include "velour/export.h"

namespace velour::utils {

// A JSON data file in the .dat wrapper, in the better of two editions: the
// one shipped beside the layer and the one the game service delivered. The
// service's edition wins only with a higher "version".
class VELOUR_EXPORT JsonParserBase {
  public:
    virtual ~JsonParserBase();

    // Reads `path` (file mode) or the update text (update mode), unwraps and
    // hands it to initialize. The path must open in both modes, so that
    // without a shipped file there is no update either. An update text under
    // 100 characters is a stub and ignored.
    bool load(const std::string& path, bool fileMode);
    // Parses plain JSON text. File mode takes it as the document; update
    // mode takes it only if its edition is higher. False leaves the document
    // as it was.
    bool initialize(const std::string& text, bool fileMode);

    const picojson::value& getRoot() const { return root; }

    // The edition of a document: the first three characters of its "version"
    // other than dots, read as one decimal number. "1.2.3" is 123, and "1.10.2"
    // is 110. Throws a std::exception without a string "version" of three
    // such characters.
    static int editionOf(const picojson::value& document);

  protected:
    // An empty document, to be filled by initialize.
    JsonParserBase() = default;
    // Loads `defaultFile`, then offers `updateText` over it.
    JsonParserBase(const std::string& defaultFile, std::string updateText);

    std::string updateText;
    picojson::value root;
};

// Tracker lists and filter parameters, plus the checks that authoring tools
// run on a file (the layer itself uses what it loaded without them).
class VELOUR_EXPORT JsonParser : public JsonParserBase {
  public:
    // `updatedFile` is not read: the update comes from the game service.
    JsonParser(const std::string& updatedFile, const std::string& defaultFile);
    // As above with the update text given, for callers without the service.
    JsonParser(const std::string& updatedFile, const std::string& defaultFile,
               const std::string& updateText);
    // An empty document, to be filled by initialize.
    JsonParser() = default;

    // root[section][key] as strings (a number label reads as picojson prints
    // it). Empty when the shape is not there.
    std::vector<std::string> getLabel(const std::string& section, const std::string& key);
    // The string "value" of each element of root[section][key]; elements
    // without one are skipped.
    std::vector<std::string> getHash(const std::string& section, const std::string& key);
    // "varName" to "value" for the "uniform1f" elements of
    // root[section]["parameters"]. Throws std::runtime_error on a wrong shape.
    std::map<std::string, float> getUniform1fData(const std::string& section);

    bool validateGameDataJson();
    bool validateFilterConfigJson();
    // The filter check, and failing that the game data check.
    bool validateJson();
    // As above, telling what is wrong in `reason` when they fail.
    bool validateGameDataJson(std::string& reason);
    bool validateFilterConfigJson(std::string& reason);

    // Throws std::runtime_error unless root[section] is an object whose
    // members `keys` are arrays.
    void checkNameValuePair(const std::string& section, const std::vector<std::string>& keys);
    // And every element of those arrays is an object whose `fields` are
    // numbers (typeWord "numeric") or strings (typeWord "string").
    void checkNameValuePair(const std::string& section, const std::vector<std::string>& keys,
                            const std::vector<std::string>& fields, const std::string& typeWord);
};

}  // namespace velour::utils
