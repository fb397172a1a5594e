#pragma once
// What `fdhost write` sends: the tag collection built from --set, --picture
// and --from-json, checked before the plug-in sees any of it, so that a
// wrong argument changes nothing.

#include <string>
#include <vector>

#include "host/tagblob.h"

namespace host {

class TagList {
public:
    // NAME=VALUE; a second value for a name joins the first with a carriage
    // return. Throws UsageError when there is no name.
    void AddSetting(const std::string& setting);
    // TYPE=IMAGEPATH[:DESCRIPTION]; a path that exists whole takes the colon
    // with it. Throws UsageError for an unknown type or an image that is no
    // readable, non-empty file.
    void AddPicture(const std::string& argument);
    // Tags as `tags --json` prints them: an object with "tags", or the array
    // itself, of {"name", "value", "data_base64" or "data_file"}; a relative
    // data file is found beside the JSON file. Throws UsageError.
    void AddFromJson(const std::string& jsonPath);

    // For a file whose tags include APE: every item key must be 2 to 255
    // characters from 0x20 to 0x7E and not one of "ID3", "TAG", "OggS",
    // "MP+", or no other reader can read the tag. Throws UsageError.
    void CheckApeKeys() const;

    const std::vector<BlobEntry>& Entries() const { return entries_; }

private:
    void AddText(const std::string& name, const std::string& value);
    void AddBinary(const std::string& name, const std::string& value, std::string data);

    std::vector<BlobEntry> entries_;
    int pictures_ = 0;
};

// Whether the plug-in writes PATH's tags with its standard engines (APE
// among them), by the extension as the plug-in tells.
bool HasApeTags(const std::string& path);

}  // namespace host
