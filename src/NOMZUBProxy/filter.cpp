// Parsing and evaluating filter expressions (grammar in filter.h).
#include "NOMZUBProxy/filter.h"

#include <cctype>
#include <vector>

namespace nomzub::proxy {

// A chain "a and b and c" is one node with three operands, so that a long chain makes a wide node
// rather than a deep one: the tree is only as deep as the nesting the parser admits.
struct Filter::Node {
  enum Kind { kOr, kAnd, kNot, kCompare } kind;
  std::vector<std::shared_ptr<const Node>> operands;  // kOr, kAnd: two or more; kNot: one
  std::string field, op, value;                       // kCompare
};

namespace {

using NodePtr = std::shared_ptr<const Filter::Node>;

bool IsWordChar(char c) {
  return !std::isspace(static_cast<unsigned char>(c)) && c != '(' && c != ')' && c != '"' &&
         c != '=' && c != '!' && c != '~';
}

std::string Lower(std::string s) {
  for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

// Pattern match with "*" and "?", ignoring ASCII case; backtracks to the last "*".
bool Glob(const std::string& pattern, const std::string& text) {
  size_t p = 0, t = 0, star = std::string::npos, resume = 0;
  while (t < text.size()) {
    if (p < pattern.size() &&
        (pattern[p] == '?' || std::tolower(static_cast<unsigned char>(pattern[p])) ==
                                  std::tolower(static_cast<unsigned char>(text[t])))) {
      ++p;
      ++t;
    } else if (p < pattern.size() && pattern[p] == '*') {
      star = p++;
      resume = t;
    } else if (star != std::string::npos) {
      p = star + 1;
      t = ++resume;
    } else {
      return false;
    }
  }
  while (p < pattern.size() && pattern[p] == '*') ++p;
  return p == pattern.size();
}

class Parser {
 public:
  explicit Parser(const std::string& text) : text_(text) {}

  // The whole text as one expression; null with error() set on a syntax error.
  NodePtr ParseAll() {
    NodePtr node = Expression();
    if (!node) return nullptr;
    SkipBlanks();
    if (pos_ < text_.size()) return Expected("'and', 'or' or the end");
    return node;
  }
  const std::string& error() const { return error_; }

 private:
  NodePtr Expression() { return Chain("or", Filter::Node::kOr, &Parser::Term); }
  NodePtr Term() { return Chain("and", Filter::Node::kAnd, &Parser::Factor); }

  // operand { keyword operand }: one node holding every operand of the chain.
  NodePtr Chain(const char* keyword, Filter::Node::Kind kind, NodePtr (Parser::*operand)()) {
    NodePtr first = (this->*operand)();
    if (!first || !Keyword(keyword)) return first;
    auto chain = std::make_shared<Filter::Node>(Filter::Node{kind, {first}, "", "", ""});
    do {
      NodePtr next = (this->*operand)();
      if (!next) return nullptr;
      chain->operands.push_back(next);
    } while (Keyword(keyword));
    return chain;
  }

  // Each "not" and each "(" opens a nesting level, and the parser descends one call deeper per
  // level: the levels are counted and refused beyond kMaxFilterNesting, so the input never
  // decides how deep the parser's own stack grows.
  NodePtr Factor() {
    SkipBlanks();
    size_t start = pos_;
    if (Keyword("not")) {
      if (!Enter(start)) return nullptr;
      NodePtr operand = Factor();
      --depth_;
      if (!operand) return nullptr;
      return std::make_shared<Filter::Node>(
          Filter::Node{Filter::Node::kNot, {operand}, "", "", ""});
    }
    if (Peek('(')) {
      if (!Enter(pos_)) return nullptr;
      ++pos_;
      NodePtr inner = Expression();
      --depth_;
      if (!inner) return nullptr;
      SkipBlanks();
      if (!Peek(')')) return Expected("')'");
      ++pos_;
      return inner;
    }
    return Comparison();
  }

  // Opens one nesting level for the "not" or "(" at position at; false (error set, naming that
  // position) when it would be one too many.
  bool Enter(size_t at) {
    if (depth_ < kMaxFilterNesting) {
      ++depth_;
      return true;
    }
    error_ = "filter syntax error at position " + std::to_string(at + 1) +
             ": nesting deeper than " + std::to_string(kMaxFilterNesting) +
             " levels (each 'not' and each '(' opens one)";
    return false;
  }

  NodePtr Comparison() {
    SkipBlanks();
    size_t start = pos_;
    std::string field = Lower(Word());
    if (field != "kind" && field != "name" && field != "oid" && field != "ident") {
      pos_ = start;
      return Expected("a field (kind, name, oid or ident)");
    }
    SkipBlanks();
    std::string op;
    for (const char* candidate : {"!=", "!~", "=", "~"}) {
      if (text_.compare(pos_, std::char_traits<char>::length(candidate), candidate) == 0) {
        op = candidate;
        break;
      }
    }
    if (op.empty()) return Expected("an operator (=, !=, ~ or !~)");
    pos_ += op.size();
    SkipBlanks();
    std::string value;
    if (Peek('"')) {
      if (!Quoted(&value)) return nullptr;
    } else {
      value = Word();
      if (value.empty()) return Expected("a value");
    }
    return std::make_shared<Filter::Node>(
        Filter::Node{Filter::Node::kCompare, {}, field, op, value});
  }

  bool Quoted(std::string* value) {
    size_t open = pos_++;
    while (pos_ < text_.size() && text_[pos_] != '"') {
      if (text_[pos_] == '\\' && pos_ + 1 < text_.size()) ++pos_;
      *value += text_[pos_++];
    }
    if (pos_ == text_.size()) {
      pos_ = open;
      Expected("a closing '\"' for the quote opened here");
      return false;
    }
    ++pos_;
    return true;
  }

  std::string Word() {
    size_t start = pos_;
    while (pos_ < text_.size() && IsWordChar(text_[pos_])) ++pos_;
    return text_.substr(start, pos_ - start);
  }

  // Consumes keyword when it stands next as a whole word (any case).
  bool Keyword(const std::string& keyword) {
    SkipBlanks();
    size_t start = pos_;
    if (Lower(Word()) == keyword) return true;
    pos_ = start;
    return false;
  }

  void SkipBlanks() {
    while (pos_ < text_.size() && std::isspace(static_cast<unsigned char>(text_[pos_]))) ++pos_;
  }
  bool Peek(char c) const { return pos_ < text_.size() && text_[pos_] == c; }

  NodePtr Expected(const std::string& what) {
    std::string found = pos_ < text_.size() ? "'" + text_.substr(pos_, 1) + "'" : "the end";
    error_ = "filter syntax error at position " + std::to_string(pos_ + 1) + ": expected " + what +
             ", found " + found;
    return nullptr;
  }

  const std::string& text_;
  size_t pos_ = 0;
  int depth_ = 0;  // nesting levels open
  std::string error_;
};

// Recursion bounded by the parser: a node lies at most three levels (an "or", an "and", then a
// "not" or a parenthesis) below each nesting level.
bool Evaluate(const Filter::Node& node, const FilterSubject& s) {
  switch (node.kind) {
    case Filter::Node::kOr:
      for (const auto& operand : node.operands) {
        if (Evaluate(*operand, s)) return true;
      }
      return false;
    case Filter::Node::kAnd:
      for (const auto& operand : node.operands) {
        if (!Evaluate(*operand, s)) return false;
      }
      return true;
    case Filter::Node::kNot:
      return !Evaluate(*node.operands[0], s);
    case Filter::Node::kCompare:
      break;
  }
  const std::string& actual = node.field == "kind"   ? s.kind
                              : node.field == "name" ? s.name
                              : node.field == "oid"  ? s.oid
                                                     : s.ident;
  bool negate = node.op[0] == '!';
  bool hit = node.op.back() == '~' ? Glob(node.value, actual) : node.value == actual;
  return hit != negate;
}

}  // namespace

Filter::Filter() = default;
Filter::~Filter() = default;
Filter::Filter(const Filter&) = default;
Filter& Filter::operator=(const Filter&) = default;

bool Filter::Parse(const std::string& text, Filter* filter, std::string* error) {
  if (text.find_first_not_of(" \t\r\n") == std::string::npos) {
    filter->root_.reset();
    return true;
  }
  Parser parser(text);
  NodePtr root = parser.ParseAll();
  if (!root) {
    *error = parser.error();
    return false;
  }
  filter->root_ = root;
  return true;
}

bool Filter::Matches(const FilterSubject& subject) const {
  return !root_ || Evaluate(*root_, subject);
}

}  // namespace nomzub::proxy
