#include "node/ScnDump.h"

#include "node/ScnNode.h"
#include "node/RtnFields.h"

namespace {

void dumpNode(const ScnNode& node, const std::string& label, int depth, std::string& out)
{
    out.append(static_cast<size_t>(depth) * 2, ' ');
    if (!label.empty()) out += label + ": ";
    out += node.getType()->name ? node.getType()->name : "?";
    out += " " + scnQuote(node.getName());
    for (int i = 1; i < node.fieldCount(); ++i) {
        const ScnField* f = node.field(i);
        std::string fname = *f->name() ? f->name() : "#" + std::to_string(i);
        out += " " + fname + "=" + f->toText();
    }
    out += '\n';
    for (int i = 1; i < node.fieldCount(); ++i) {
        const ScnField* f = node.field(i);
        std::string fname = *f->name() ? f->name() : "#" + std::to_string(i);
        const auto* slots = dynamic_cast<const RtnMFNode*>(f);
        if (slots) {
            for (int s = 0; s < RtnMFNode::kSlots; ++s)
                if (ScnNode* n = slots->get(s)) dumpNode(*n, fname + "[" + std::to_string(s) + "]", depth + 1, out);
            continue;
        }
        if (const auto* list = dynamic_cast<const ScnMFNodeBase*>(f)) {
            // Walked, not looked up by index: that would walk the list once per child.
            for (ScnNode* n = list->first(); n; n = n->next()) dumpNode(*n, std::string(), depth + 1, out);
            continue;
        }
        bool single = std::string(f->kind()) == "node";
        for (int k = 0; k < f->nodeCount(); ++k)
            if (ScnNode* n = f->nodeAt(k)) dumpNode(*n, single ? fname : std::string(), depth + 1, out);
    }
}

}  // namespace

std::string scnDump(const ScnNode& root)
{
    std::string out;
    dumpNode(root, std::string(), 0, out);
    return out;
}
