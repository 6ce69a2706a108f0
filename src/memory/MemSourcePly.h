// A PLY model as a source: the header's elements and properties (for the
// chooser that builds a load record), and the load of the chosen columns of
// one element into a 1D memory object through the plug-in `ply`. Used as a
// local object: construct on the target, open(file), load(info), destroy.
#pragma once

#include <string>
#include <vector>

#include "memory/MemSource.h"
#include "node/ScnField.h"

class MemSourcePly : public MemSource {
public:
    struct Property {
        std::string name, type, value_type;
    };
    struct Element {
        std::string name;
        int count = 0;
        std::vector<Property> properties;
    };
    // The record a node keeps of a choice: stride, element type code, element
    // name, up to ten property names and how many are used (1112 bytes).
    using LoadInfo = ScnPlyLoadInfo;

    using MemSource::MemSource;

    // ply.getFileInfo(path) into `elements`, in the order the table gives
    // them; keys that are no strings and values that are no tables are
    // skipped. True when a table came back.
    bool getFileInfo(const char* path);
    // ply.read(memory, {file, stride, element, type, property}) with the
    // first `count` names of `info`.
    bool load(const LoadInfo& info);

    std::vector<Element> elements;
};
