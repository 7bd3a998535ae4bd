#include "TqPattern.h"
#include "base/TqFailure.h"

#include <cctype>
#include <memory>
#include <stdexcept>
#include <utility>

namespace {

// std::regex's wording for the malformed patterns it refuses.
constexpr const char* kMismatchedParen = "Mismatched '(' and ')' in regular expression";
constexpr const char* kBadBracket = "Unexpected character within '[...]' in regular expression";
constexpr const char* kBadBraceRange = "Invalid range in '{}' in regular expression";
constexpr const char* kMismatchedBrace = "Mismatched '{' and '}' in regular expression";
constexpr const char* kTrailingEscape = "Invalid escape at end of regular expression";
constexpr const char* kBadClassRange = "Invalid range in bracket expression.";
constexpr const char* kBadRangeEnd = "Invalid end of '[x-x]' range in regular expression";

constexpr std::size_t kMaxNesting = 64;       // groups inside groups
constexpr std::size_t kMaxRepeatCount = 1000; // n and m of {n,m}
constexpr std::size_t kMaxProgram = 100000;   // instructions after expanding repetitions

using Class = std::bitset<256>;

[[noreturn]] void refuse(const char* text) {
    throw TqFailure(text);
}

[[noreturn]] void unsupported(const std::string& construct) {
    throw TqFailure("Unsupported regular expression construct: " + construct);
}

Class classOf(int (*test)(int)) {
    Class set;
    for (int c = 0; c < 256; ++c) {
        if (test(c) != 0) {
            set.set(static_cast<std::size_t>(c));
        }
    }
    return set;
}

int isWordCharacter(int c) {
    return std::isalnum(c) != 0 || c == '_' ? 1 : 0;
}

struct Node;
using NodePtr = std::unique_ptr<Node>;

struct Node {
    enum class Kind {
        kEmpty,
        kByte,
        kAny,
        kClass,
        kBegin,
        kEnd,
        kGroup,
        kConcat,
        kAlternation,
        kRepeat
    };
    Kind kind = Kind::kEmpty;
    unsigned char byte = 0;
    Class set;
    std::size_t group = 0; // kGroup: capture index, 0 for a non-capturing group
    std::size_t min = 0;
    std::size_t max = 0; // TqPattern::npos: unbounded
    bool greedy = true;
    std::vector<NodePtr> children;
};

NodePtr makeNode(Node::Kind kind) {
    auto node = std::make_unique<Node>();
    node->kind = kind;
    return node;
}

class Parser {
public:
    explicit Parser(std::string_view pattern) : pattern_(pattern) {}

    NodePtr parse() {
        NodePtr root = alternation(0);
        if (position_ != pattern_.size()) {
            refuse(kMismatchedParen); // a ")" without its "("
        }
        return root;
    }
    std::size_t groupCount() const noexcept { return groups_ + 1; }

private:
    bool atEnd() const noexcept { return position_ >= pattern_.size(); }
    char peek() const noexcept { return pattern_[position_]; }

    NodePtr alternation(std::size_t depth) {
        NodePtr first = concatenation(depth);
        if (atEnd() || peek() != '|') {
            return first;
        }
        NodePtr node = makeNode(Node::Kind::kAlternation);
        node->children.push_back(std::move(first));
        while (!atEnd() && peek() == '|') {
            ++position_;
            node->children.push_back(concatenation(depth));
        }
        return node;
    }

    NodePtr concatenation(std::size_t depth) {
        NodePtr node = makeNode(Node::Kind::kConcat);
        while (!atEnd() && peek() != '|' && peek() != ')') {
            node->children.push_back(repetition(depth));
        }
        return node;
    }

    NodePtr repetition(std::size_t depth) {
        NodePtr atom = this->atom(depth);
        if (atEnd()) {
            return atom;
        }
        std::size_t min = 0;
        std::size_t max = TqPattern::npos;
        switch (peek()) {
        case '*':
            ++position_;
            break;
        case '+':
            ++position_;
            min = 1;
            break;
        case '?':
            ++position_;
            max = 1;
            break;
        case '{':
            braces(min, max);
            break;
        default:
            return atom;
        }
        if (atom->kind == Node::Kind::kBegin || atom->kind == Node::Kind::kEnd) {
            unsupported("a quantified anchor");
        }
        NodePtr node = makeNode(Node::Kind::kRepeat);
        node->min = min;
        node->max = max;
        if (!atEnd() && peek() == '?') {
            ++position_;
            node->greedy = false;
        }
        node->children.push_back(std::move(atom));
        if (!atEnd() && (peek() == '*' || peek() == '+' || peek() == '?' || peek() == '{')) {
            unsupported("a quantifier after a quantifier");
        }
        return node;
    }

    std::size_t number() {
        std::size_t value = 0;
        std::size_t digits = 0;
        while (!atEnd() && std::isdigit(static_cast<unsigned char>(peek())) != 0) {
            value = value * 10 + static_cast<std::size_t>(peek() - '0');
            if (value > kMaxRepeatCount) {
                unsupported("a repetition count over 1000");
            }
            ++position_;
            ++digits;
        }
        if (digits == 0) {
            refuse(atEnd() ? kMismatchedBrace : kBadBraceRange);
        }
        return value;
    }

    void braces(std::size_t& min, std::size_t& max) {
        ++position_; // "{"
        if (atEnd()) {
            refuse(kBadBraceRange);
        }
        min = number();
        max = min;
        if (!atEnd() && peek() == ',') {
            ++position_;
            max = TqPattern::npos;
            if (!atEnd() && peek() != '}') {
                max = number();
            }
        }
        if (atEnd()) {
            refuse(kMismatchedBrace);
        }
        if (peek() != '}') {
            refuse(kBadBraceRange);
        }
        ++position_;
        if (max < min) {
            refuse(kBadBraceRange);
        }
    }

    NodePtr atom(std::size_t depth) {
        const char c = peek();
        ++position_;
        switch (c) {
        case '(':
            return group(depth);
        case '[':
            return bracket();
        case '.':
            return makeNode(Node::Kind::kAny);
        case '^':
            return makeNode(Node::Kind::kBegin);
        case '$':
            return makeNode(Node::Kind::kEnd);
        case '\\':
            return escape();
        case '*':
        case '+':
        case '?':
        case '{':
            refuse(kMismatchedParen); // a quantifier with nothing to repeat
        case '}':
        case ']':
            unsupported(std::string("a lone '") + c + "'");
        default:
            return byteNode(static_cast<unsigned char>(c));
        }
    }

    static NodePtr byteNode(unsigned char byte) {
        NodePtr node = makeNode(Node::Kind::kByte);
        node->byte = byte;
        return node;
    }

    static NodePtr classNode(const Class& set) {
        NodePtr node = makeNode(Node::Kind::kClass);
        node->set = set;
        return node;
    }

    NodePtr group(std::size_t depth) {
        if (depth + 1 > kMaxNesting) {
            unsupported("groups nested more than 64 deep");
        }
        std::size_t index = 0;
        if (!atEnd() && peek() == '?') {
            if (position_ + 1 < pattern_.size() && pattern_[position_ + 1] == ':') {
                position_ += 2;
            } else if (position_ + 1 >= pattern_.size()) {
                refuse(kMismatchedParen);
            } else {
                unsupported("a look-around");
            }
        } else {
            index = ++groups_;
        }
        NodePtr node = makeNode(Node::Kind::kGroup);
        node->group = index;
        node->children.push_back(alternation(depth + 1));
        if (atEnd() || peek() != ')') {
            refuse(kMismatchedParen);
        }
        ++position_;
        return node;
    }

    // The class an escape letter stands for, or false when it stands for one character.
    static bool escapeClass(char letter, Class& set) {
        static const Class digits = classOf([](int c) { return std::isdigit(c); });
        static const Class spaces = classOf([](int c) { return std::isspace(c); });
        static const Class words = classOf(isWordCharacter);
        switch (letter) {
        case 'd':
            set = digits;
            return true;
        case 'D':
            set = ~digits;
            return true;
        case 's':
            set = spaces;
            return true;
        case 'S':
            set = ~spaces;
            return true;
        case 'w':
            set = words;
            return true;
        case 'W':
            set = ~words;
            return true;
        default:
            return false;
        }
    }

    static unsigned char escapedByte(char letter) {
        switch (letter) {
        case 't':
            return '\t';
        case 'n':
            return '\n';
        case 'r':
            return '\r';
        case 'f':
            return '\f';
        case 'v':
            return '\v';
        default:
            break;
        }
        const unsigned char byte = static_cast<unsigned char>(letter);
        if (std::isalnum(byte) != 0 || byte >= 0x80) {
            unsupported(std::string("the escape \\") + letter);
        }
        return byte;
    }

    NodePtr escape() {
        if (atEnd()) {
            refuse(kTrailingEscape);
        }
        const char letter = peek();
        ++position_;
        Class set;
        if (escapeClass(letter, set)) {
            return classNode(set);
        }
        return byteNode(escapedByte(letter));
    }

    // One member of a bracket class: a byte (returned, single = true) or a class escape.
    unsigned char bracketMember(Class& set, bool& single) {
        if (atEnd()) {
            refuse(kBadBracket);
        }
        char c = peek();
        ++position_;
        single = true;
        if (c == '[') {
            // std::regex reads "[:", "[=" and "[." as the start of a named class.
            unsupported("'[' inside a bracket class");
        }
        if (c != '\\') {
            return static_cast<unsigned char>(c);
        }
        if (atEnd()) {
            refuse(kBadBracket);
        }
        c = peek();
        ++position_;
        Class escaped;
        if (escapeClass(c, escaped)) {
            set |= escaped;
            single = false;
            return 0;
        }
        if (c == 'b') {
            return '\b';
        }
        return escapedByte(c);
    }

    NodePtr bracket() {
        Class set;
        bool negated = false;
        if (!atEnd() && peek() == '^') {
            negated = true;
            ++position_;
        }
        if (!atEnd() && peek() == ']') {
            unsupported("an empty bracket class");
        }
        while (true) {
            if (atEnd()) {
                refuse(kBadBracket);
            }
            if (peek() == ']') {
                ++position_;
                break;
            }
            bool single = false;
            const unsigned char first = bracketMember(set, single);
            if (!single && !atEnd() && peek() == '-' && position_ + 1 < pattern_.size() &&
                pattern_[position_ + 1] != ']') {
                unsupported("a range from a class escape");
            }
            if (single && !atEnd() && peek() == '-' && position_ + 1 >= pattern_.size()) {
                refuse(kBadRangeEnd);
            }
            const bool range = single && position_ + 1 < pattern_.size() && peek() == '-' &&
                               pattern_[position_ + 1] != ']';
            if (!range) {
                if (single) {
                    set.set(first);
                }
                continue;
            }
            ++position_; // "-"
            bool lastSingle = false;
            const unsigned char last = bracketMember(set, lastSingle);
            if (!lastSingle) {
                refuse(kBadClassRange);
            }
            // std::regex compares plain chars, which are signed here: keep ranges to one side
            // of 0x80 so that both agree.
            if ((first >= 0x80) != (last >= 0x80)) {
                unsupported("a range across 0x80");
            }
            if (last < first) {
                refuse(kBadClassRange);
            }
            for (unsigned c = first; c <= last; ++c) {
                set.set(c);
            }
        }
        return classNode(negated ? ~set : set);
    }

    std::string_view pattern_;
    std::size_t position_ = 0;
    std::size_t groups_ = 0;
};

bool nullable(const Node& node) {
    switch (node.kind) {
    case Node::Kind::kByte:
    case Node::Kind::kAny:
    case Node::Kind::kClass:
        return false;
    case Node::Kind::kGroup:
        return nullable(*node.children.front());
    case Node::Kind::kConcat:
        for (const NodePtr& child : node.children) {
            if (!nullable(*child)) {
                return false;
            }
        }
        return true;
    case Node::Kind::kAlternation:
        for (const NodePtr& child : node.children) {
            if (nullable(*child)) {
                return true;
            }
        }
        return false;
    case Node::Kind::kRepeat:
        return node.min == 0 || nullable(*node.children.front());
    default:
        return true;
    }
}

using Op = TqPattern::Op;
using Instruction = TqPattern::Instruction;

class Compiler {
public:
    Compiler(std::vector<Instruction>& program, std::vector<Class>& classes)
        : program_(program), classes_(classes) {}

    void compile(const Node& node) {
        switch (node.kind) {
        case Node::Kind::kEmpty:
            break;
        case Node::Kind::kByte:
            emit({Op::kByte, node.byte});
            break;
        case Node::Kind::kAny:
            emit({Op::kAny});
            break;
        case Node::Kind::kClass:
            classes_.push_back(node.set);
            emit({Op::kClass, 0, 0, classes_.size() - 1});
            break;
        case Node::Kind::kBegin:
            emit({Op::kBegin});
            break;
        case Node::Kind::kEnd:
            emit({Op::kEnd});
            break;
        case Node::Kind::kGroup:
            group(node);
            break;
        case Node::Kind::kConcat:
            for (const NodePtr& child : node.children) {
                compile(*child);
            }
            break;
        case Node::Kind::kAlternation:
            alternation(node);
            break;
        case Node::Kind::kRepeat:
            repeat(node);
            break;
        }
    }

private:
    std::size_t emit(Instruction instruction) {
        if (program_.size() >= kMaxProgram) {
            unsupported("a pattern over 100000 steps");
        }
        program_.push_back(instruction);
        return program_.size() - 1;
    }

    void group(const Node& node) {
        if (node.group == 0) {
            compile(*node.children.front());
            return;
        }
        emit({Op::kSave, 0, 2 * node.group});
        compile(*node.children.front());
        emit({Op::kSave, 0, 2 * node.group + 1});
    }

    void alternation(const Node& node) {
        std::vector<std::size_t> exits;
        for (std::size_t i = 0; i < node.children.size(); ++i) {
            if (i + 1 == node.children.size()) {
                compile(*node.children[i]);
                break;
            }
            const std::size_t split = emit({Op::kSplit});
            program_[split].x = program_.size();
            compile(*node.children[i]);
            exits.push_back(emit({Op::kJump}));
            program_[split].y = program_.size();
        }
        for (const std::size_t exit : exits) {
            program_[exit].x = program_.size();
        }
    }

    // A split that tries the atom first when greedy; its other branch is patched to the exit.
    std::size_t optionalSplit(bool greedy) {
        const std::size_t split = emit({Op::kSplit});
        if (greedy) {
            program_[split].x = split + 1;
        } else {
            program_[split].y = split + 1;
        }
        return split;
    }

    void patchExit(std::size_t split, bool greedy) {
        (greedy ? program_[split].y : program_[split].x) = program_.size();
    }

    // Groups inside a repeated atom keep what their last pass matched, as std::regex keeps it.
    void repeat(const Node& node) {
        const Node& atom = *node.children.front();
        if (nullable(atom)) {
            // Where std::regex stops repeating an atom that matched nothing is its own choice;
            // no pattern of ours needs it.
            unsupported("a quantifier on something that can match nothing");
        }
        for (std::size_t i = 0; i < node.min; ++i) {
            compile(atom);
        }
        if (node.max == TqPattern::npos) {
            const std::size_t split = optionalSplit(node.greedy);
            compile(atom);
            emit({Op::kJump, 0, split});
            patchExit(split, node.greedy);
            return;
        }
        std::vector<std::size_t> splits;
        for (std::size_t i = node.min; i < node.max; ++i) {
            splits.push_back(optionalSplit(node.greedy));
            compile(atom);
        }
        for (const std::size_t split : splits) {
            patchExit(split, node.greedy);
        }
    }

    std::vector<Instruction>& program_;
    std::vector<Class>& classes_;
};

// The threads of one step, in priority order, with their slots side by side.
struct ThreadList {
    std::vector<std::size_t> pcs;
    std::vector<std::size_t> slots; // slotCount per thread
    std::vector<std::size_t> seenAt;
    std::size_t step = 0;

    void reset(std::size_t programSize) {
        pcs.clear();
        slots.clear();
        seenAt.assign(programSize, TqPattern::npos);
    }
    void clear() {
        pcs.clear();
        slots.clear();
        ++step;
    }
};

} // namespace

TqPattern::TqPattern(std::string_view pattern) {
    Parser parser(pattern);
    const NodePtr root = parser.parse();
    groupCount_ = parser.groupCount();
    slotCount_ = 2 * groupCount_;
    Compiler compiler(program_, classes_);
    program_.push_back({Op::kSave, 0, 0});
    compiler.compile(*root);
    program_.push_back({Op::kSave, 0, 1});
    program_.push_back({Op::kMatch});
}

namespace {

struct Job {
    bool restore;
    std::size_t value; // restore: the slot's old value; explore: the instruction
    std::size_t slot;
};

// Follows every jump, split and zero-width step from pc at position pos, in priority order, and
// adds the threads that wait for a byte or a match to the list. An explicit stack keeps the
// machine's own stack flat whatever the pattern.
void addThread(const std::vector<Instruction>& program, ThreadList& list, std::size_t pc,
               std::vector<std::size_t>& slots, std::size_t pos, std::size_t length,
               std::vector<Job>& jobs) {
    jobs.clear();
    jobs.push_back({false, pc, 0});
    while (!jobs.empty()) {
        const Job job = jobs.back();
        jobs.pop_back();
        if (job.restore) {
            slots[job.slot] = job.value;
            continue;
        }
        const std::size_t at = job.value;
        if (list.seenAt[at] == list.step) {
            continue;
        }
        list.seenAt[at] = list.step;
        const Instruction& instruction = program[at];
        switch (instruction.op) {
        case Op::kJump:
            jobs.push_back({false, instruction.x, 0});
            break;
        case Op::kSplit:
            jobs.push_back({false, instruction.y, 0});
            jobs.push_back({false, instruction.x, 0});
            break;
        case Op::kSave:
            jobs.push_back({true, slots[instruction.x], instruction.x});
            slots[instruction.x] = pos;
            jobs.push_back({false, at + 1, 0});
            break;
        case Op::kBegin:
            if (pos == 0) {
                jobs.push_back({false, at + 1, 0});
            }
            break;
        case Op::kEnd:
            if (pos == length) {
                jobs.push_back({false, at + 1, 0});
            }
            break;
        default:
            list.pcs.push_back(at);
            list.slots.insert(list.slots.end(), slots.begin(), slots.end());
            break;
        }
    }
}

} // namespace

bool TqPattern::run(std::string_view text, std::size_t from, bool wholeText, bool notEmpty,
                    bool anchoredAtFrom, Groups& groups) const {
    ThreadList current;
    ThreadList next;
    current.reset(program_.size());
    next.reset(program_.size());
    next.step = 1;
    std::vector<std::size_t> slots(slotCount_, npos);
    std::vector<Job> jobs;
    std::vector<std::size_t> found;
    for (std::size_t pos = from;; ++pos) {
        if (found.empty() && (pos == from || !anchoredAtFrom)) {
            std::fill(slots.begin(), slots.end(), npos);
            addThread(program_, current, 0, slots, pos, text.size(), jobs);
        }
        if (current.pcs.empty() && (!found.empty() || anchoredAtFrom)) {
            break; // nothing left that could still match
        }
        for (std::size_t t = 0; t < current.pcs.size(); ++t) {
            const Instruction& instruction = program_[current.pcs[t]];
            const std::size_t* threadSlots = current.slots.data() + t * slotCount_;
            if (instruction.op == Op::kMatch) {
                if ((wholeText && pos != text.size()) || (notEmpty && threadSlots[0] == pos)) {
                    continue;
                }
                found.assign(threadSlots, threadSlots + slotCount_);
                break; // every later thread has a lower priority
            }
            if (pos >= text.size()) {
                continue;
            }
            const unsigned char byte = static_cast<unsigned char>(text[pos]);
            const bool taken = (instruction.op == Op::kByte && byte == instruction.byte) ||
                               (instruction.op == Op::kAny && byte != '\n' && byte != '\r') ||
                               (instruction.op == Op::kClass && classes_[instruction.y].test(byte));
            if (taken) {
                slots.assign(threadSlots, threadSlots + slotCount_);
                addThread(program_, next, current.pcs[t] + 1, slots, pos + 1, text.size(), jobs);
            }
        }
        if (pos >= text.size()) {
            break;
        }
        std::swap(current, next);
        next.clear();
        ++next.step; // distinct from the step the swapped-in list used
    }
    if (found.empty()) {
        return false;
    }
    groups.begin.assign(groupCount_, npos);
    groups.end.assign(groupCount_, npos);
    for (std::size_t group = 0; group < groupCount_; ++group) {
        if (found[2 * group] != npos && found[2 * group + 1] != npos) {
            groups.begin[group] = found[2 * group];
            groups.end[group] = found[2 * group + 1];
        }
    }
    return true;
}

bool TqPattern::fullMatch(std::string_view text, Groups& groups) const {
    return run(text, 0, true, false, true, groups);
}

bool TqPattern::search(std::string_view text, std::size_t from, Groups& groups, bool notEmpty,
                       bool anchoredAtFrom) const {
    if (from > text.size()) {
        return false;
    }
    return run(text, from, false, notEmpty, anchoredAtFrom, groups);
}

std::vector<std::string> TqPattern::split(std::string_view text) const {
    std::vector<std::string> pieces;
    Groups match;
    if (!search(text, 0, match)) {
        pieces.emplace_back(text);
        return pieces;
    }
    std::size_t pieceBegin = 0;
    while (true) {
        pieces.emplace_back(text.substr(pieceBegin, match.begin[0] - pieceBegin));
        pieceBegin = match.end[0];
        std::size_t start = match.end[0];
        bool more = false;
        if (match.begin[0] == match.end[0]) {
            // After an empty match the next one must not be empty at the same place; failing
            // that, the search goes on one character further.
            if (start == text.size()) {
                break;
            }
            more = search(text, start, match, true, true);
            ++start;
        }
        if (!more) {
            more = search(text, start, match);
        }
        if (!more) {
            break;
        }
    }
    if (pieceBegin < text.size()) {
        pieces.emplace_back(text.substr(pieceBegin));
    }
    return pieces;
}
