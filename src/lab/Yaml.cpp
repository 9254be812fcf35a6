// Builds the tree from the parser's events, because only they carry the lines of keys and show a key that comes
// twice. Limits are held while the parser runs: it stops at the first thing that is too much.
#include "lab/Yaml.h"

#include <yaml-cpp/eventhandler.h>
#include <yaml-cpp/exceptions.h>
#include <yaml-cpp/mark.h>
#include <yaml-cpp/parser.h>

#include <algorithm>
#include <optional>
#include <sstream>

namespace Lab {

namespace {

std::size_t lineOf(const YAML::Mark& mark) {
  return static_cast<std::size_t>(std::max(mark.line, 0)) + 1;
}

class TreeBuilder : public YAML::EventHandler {
 public:
  TreeBuilder(YamlNode& root, const std::string& file) : root_(root), file_(file) {}

  void OnDocumentStart(const YAML::Mark&) override {}
  void OnDocumentEnd() override {}

  void OnNull(const YAML::Mark& mark, YAML::anchor_t anchor) override {
    refuseAnchor(mark, anchor);
    add(mark, YamlNode::Kind::none, {});
  }

  void OnAlias(const YAML::Mark& mark, YAML::anchor_t anchor) override { refuseAnchor(mark, std::max(anchor, {1})); }

  void OnScalar(const YAML::Mark& mark, const std::string& tag, YAML::anchor_t anchor,
                const std::string& value) override {
    refuse(mark, tag, anchor);
    if (!open_.empty() && open_.back().node->kind == YamlNode::Kind::map && !open_.back().key)
      keyIs(lineOf(mark), value);
    else
      add(mark, YamlNode::Kind::scalar, value);
  }

  void OnSequenceStart(const YAML::Mark& mark, const std::string& tag, YAML::anchor_t anchor,
                       YAML::EmitterStyle::value) override {
    refuse(mark, tag, anchor);
    enter(mark, YamlNode::Kind::list);
  }
  void OnSequenceEnd() override { open_.pop_back(); }

  void OnMapStart(const YAML::Mark& mark, const std::string& tag, YAML::anchor_t anchor,
                  YAML::EmitterStyle::value) override {
    refuse(mark, tag, anchor);
    enter(mark, YamlNode::Kind::map);
  }
  void OnMapEnd() override { open_.pop_back(); }

 private:
  struct Open {
    YamlNode* node;  // stays in place: its parent gets no further child before it is closed
    std::optional<YamlNode::Entry> key;
  };

  void refuseAnchor(const YAML::Mark& mark, YAML::anchor_t anchor) const {
    if (anchor != 0)
      throw ScenarioError(file_, lineOf(mark), "anchors and aliases are not read; expected the content itself");
  }
  void refuse(const YAML::Mark& mark, const std::string& tag, YAML::anchor_t anchor) const {
    refuseAnchor(mark, anchor);
    // The parser gives "?" for what stands plain, "!" for what stands in quotes.
    if (!tag.empty() && tag != "?" && tag != "!")
      throw ScenarioError(file_, lineOf(mark), "tag " + inQuotes(tag) + " is not read; expected the content itself");
  }

  void keyIs(std::size_t line, const std::string& key) {
    for (const YamlNode::Entry& entry : open_.back().node->entries)
      if (entry.key == key)
        throw ScenarioError(file_, line,
                            "the key " + inQuotes(key) + " stands already in line " + std::to_string(entry.keyLine) +
                                "; expected each key once");
    if (open_.back().node->entries.size() == maxYamlKeys)
      throw ScenarioError(file_, line, "too many keys; expected at most " + std::to_string(maxYamlKeys) + " in a map");
    open_.back().key = YamlNode::Entry{key, line, {}};
  }

  YamlNode& add(const YAML::Mark& mark, YamlNode::Kind kind, const std::string& text) {
    YamlNode node;
    node.kind = kind;
    node.line = lineOf(mark);
    node.text = text;
    if (open_.empty()) return root_ = std::move(node);
    Open& parent = open_.back();
    if (parent.node->kind == YamlNode::Kind::list) return parent.node->items.emplace_back(std::move(node));
    if (!parent.key) throw ScenarioError(file_, node.line, "a key that is no word; expected a word as key");
    parent.key->value = std::move(node);
    parent.node->entries.push_back(std::move(*parent.key));
    parent.key.reset();
    return parent.node->entries.back().value;
  }

  void enter(const YAML::Mark& mark, YamlNode::Kind kind) {
    if (open_.size() == maxYamlDepth)
      throw ScenarioError(file_, lineOf(mark),
                          "nested too deeply; expected at most " + std::to_string(maxYamlDepth) + " levels");
    open_.push_back({&add(mark, kind, {}), std::nullopt});
  }

  YamlNode& root_;
  const std::string& file_;
  std::vector<Open> open_;
};

}  // namespace

YamlNode parseYaml(std::string_view text, const std::string& file) {
  if (text.size() > maxYamlSize)
    throw ScenarioError(file, 1, "too large; expected at most " + std::to_string(maxYamlSize) + " bytes");
  // The scanner takes a zero byte for the end and would pass over what follows it.
  if (const std::size_t zero = text.find('\0'); zero != std::string_view::npos) {
    const std::string_view before = text.substr(0, zero);
    const auto lines = static_cast<std::size_t>(std::count(before.begin(), before.end(), '\n'));
    throw ScenarioError(file, lines + 1, "a zero byte; expected text");
  }
  YamlNode root;
  TreeBuilder builder(root, file);
  try {
    std::istringstream in{std::string(text)};
    YAML::Parser parser(in);
    YamlNode second;
    TreeBuilder rest(second, file);
    if (parser.HandleNextDocument(builder) && parser.HandleNextDocument(rest))
      throw ScenarioError(file, second.line, "a second document; expected one");
  } catch (const YAML::Exception& error) {
    throw ScenarioError(file, lineOf(error.mark), "not YAML: " + error.msg + "; expected a scenario");
  }
  return root;
}

}  // namespace Lab
