// A mutator for RIFF files. It splits a file into its lists and chunks, changes one of them, and builds the file again
// with correct sizes, so that the change reaches the code behind the walk over the chunks. In one of four cases
// libFuzzer changes the bytes instead, which can also break sizes.

#include "Harness.hpp"

#include <algorithm>
#include <cstring>
#include <memory>
#include <random>
#include <vector>

extern "C" size_t LLVMFuzzerMutate(UInt8* pData, size_t size, size_t maxSize);

namespace {

using Bytes = std::vector<UInt8>;

struct Node {
    UInt8 code[4] = {};
    UInt8 type[4] = {}; // only for a list
    bool bList = false;
    Bytes payload; // only for a chunk
    std::vector<Node> children;
};

bool IsList(const UInt8* pCode) { return std::memcmp(pCode, "RIFF", 4) == 0 || std::memcmp(pCode, "LIST", 4) == 0; }

std::vector<Node> Parse(lxfuzz::Input bytes, int depth)
{
    std::vector<Node> nodes;
    while (bytes.size() >= 8) {
        Node node;
        UInt32 size = 0;
        std::memcpy(node.code, bytes.data(), 4);
        std::memcpy(&size, bytes.data() + 4, 4);
        const size_t taken = std::min<size_t>(size, bytes.size() - 8);
        const lxfuzz::Input body = bytes.subspan(8, taken);
        node.bList = IsList(node.code) && taken >= 4 && depth < 6;
        if (node.bList) {
            std::memcpy(node.type, body.data(), 4);
            node.children = Parse(body.subspan(4), depth + 1);
        } else {
            node.payload.assign(body.begin(), body.end());
        }
        nodes.push_back(std::move(node));
        bytes = bytes.subspan(std::min(bytes.size(), 8 + taken + taken % 2));
    }
    return nodes;
}

void Write(const std::vector<Node>& nodes, Bytes& out)
{
    for (const Node& node : nodes) {
        out.insert(out.end(), node.code, node.code + 4);
        const size_t sizeAt = out.size();
        out.resize(out.size() + 4);
        if (node.bList) {
            out.insert(out.end(), node.type, node.type + 4);
            Write(node.children, out);
        } else {
            out.insert(out.end(), node.payload.begin(), node.payload.end());
        }
        const auto size = static_cast<UInt32>(out.size() - sizeAt - 4);
        std::memcpy(out.data() + sizeAt, &size, 4);
        out.resize(out.size() + size % 2);
    }
}

using Random = std::minstd_rand;

// Picks a list of nodes in the tree that is not empty.
std::vector<Node>& PickList(std::vector<Node>& nodes, Random& random)
{
    std::vector<Node>* pList = &nodes;
    for (;;) {
        Node& node = (*pList)[random() % pList->size()];
        if (!node.bList || node.children.empty() || random() % 5 == 0) {
            return *pList;
        }
        pList = &node.children;
    }
}

void MutatePayload(Node& node)
{
    const size_t size = node.payload.size();
    node.payload.resize(size + 64);
    node.payload.resize(LLVMFuzzerMutate(node.payload.data(), size, node.payload.size()));
}

constexpr char kCodes[][5] = {"strl", "strh", "strf", "strd", "indx", "odml", "dmlh", "JUNK",
                              "INFO", "movi", "idx1", "00dc", "00db", "01wb", "00dd", "02st",
                              "ix00", "ix01", "AVIX", "rec ", "LIST", "abcd", "hdrl", "avih"};

void Change(std::vector<Node>& list, Random& random)
{
    const size_t at = random() % list.size();
    Node& node = list[at];
    switch (random() % 8) {
    case 0: list.insert(list.begin() + static_cast<long>(at), Node(node)); break; // the node occurs twice
    case 1:
        if (list.size() > 1) {
            list.erase(list.begin() + static_cast<long>(at));
        }
        break;
    case 2: std::swap(node, list[random() % list.size()]); break;
    case 3: std::memcpy(node.bList ? node.type : node.code, kCodes[random() % std::size(kCodes)], 4); break;
    case 4: node.payload.resize(node.payload.size() / 2); break;
    default: MutatePayload(node); break;
    }
}

} // namespace

extern "C" size_t LLVMFuzzerCustomMutator(UInt8* pData, size_t size, size_t maxSize, unsigned seed)
{
    Random random(seed);
    const lxfuzz::Parts parts = lxfuzz::Split(pData, size, kScriptBytes);
    std::vector<Node> nodes = Parse(parts.file, 0);
    if (random() % 4 == 0 || nodes.empty() || size < kScriptBytes) {
        return LLVMFuzzerMutate(pData, size, maxSize);
    }
    Bytes script(parts.script.begin(), parts.script.end());
    if (random() % 3 == 0 && !script.empty()) {
        script.resize(LLVMFuzzerMutate(script.data(), script.size(), script.size()));
        script.resize(kScriptBytes);
    } else {
        Change(PickList(nodes, random), random);
    }
    Bytes out;
    Write(nodes, out);
    out.insert(out.end(), script.begin(), script.end());
    if (out.size() > maxSize) {
        return LLVMFuzzerMutate(pData, size, maxSize);
    }
    std::memcpy(pData, out.data(), out.size());
    return out.size();
}
