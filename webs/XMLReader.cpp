#include "webs/XMLReader.h"

// expat.h declares the limits of entities only with one of these macros; which one depends on its
// version.
#define XML_DTD
#define XML_GE 1
#include <expat.h>

#include <algorithm>
#include <cstring>

#include "util/Log.h"

namespace webs {
namespace {

const char DECLARATION[] = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";
const size_t DECLARATION_SIZE = sizeof(DECLARATION) - 1;

const char TREE_TOO_LARGE[] = "the tree exceeds its limit";

// The least marks that an element and an attribute have besides their texts: "</>", and a blank
// with "=''". So a document without entities is at least as large as what this counts, apart from
// its encoding.
const size_t ELEMENT_MARKS = 3;
const size_t ATTRIBUTE_MARKS = 4;

}  // namespace

XMLReader::XMLReader() : TreeNode(nullptr), current(this) {}

XMLReader::~XMLReader() {
  freeParser();
  TreeNode::clear();
  TreeNode::clean();
}

int XMLReader::streamIn(const char* data, int len, int isFinal) {
  if (len > 0) received += len;
  int status = XML_Parse(parser, data, len, isFinal);
  if (status == XML_STATUS_OK && isFinal == 0 && holdsTooMuch()) {
    XML_StopParser(parser, XML_FALSE);
    status = XML_STATUS_ERROR;
  }
  if (status == XML_STATUS_ERROR) noteProblem();
  return status;
}

// expat holds a token that has not ended, whatever its size.
bool XMLReader::holdsTooMuch() {
  parsed = std::max<long long>(parsed, XML_GetCurrentByteIndex(parser));
  if (mayHold(static_cast<size_t>(received - parsed))) return false;
  refusal = TREE_TOO_LARGE;
  return true;
}

// Keeps the first failure: those after it only say that the document is over.
void XMLReader::noteProblem() {
  if (!problem.empty() || parser == nullptr) return;
  const XML_Error code = XML_GetErrorCode(parser);
  if (code == XML_ERROR_AMPLIFICATION_LIMIT_BREACH) stopUnfolding();
  problem = refusal != nullptr ? refusal : XML_ErrorString(code);
  if (code == XML_ERROR_UNKNOWN_ENCODING) problem += " \"" + encoding + '"';
  problem += " at line " + std::to_string(XML_GetCurrentLineNumber(parser)) + ", column " +
             std::to_string(XML_GetCurrentColumnNumber(parser) + 1);
}

void XMLReader::initialize() {
  if (initialized) return;
  initialized = true;
  freeParser();
  createParser();
}

void XMLReader::readyRead() {
  freeParser();
  createParser();
}

void XMLReader::createParser() {
  entities = EntityNesting();
  received = 0;
  parsed = 0;
  reported = 0;
  unfolded = 0;
  refusal = nullptr;
  encoding.clear();
  problem.clear();
  parser = XML_ParserCreate(nullptr);
  if (parser == nullptr) {
    FLUVIA_LOG(-4, "no memory for an XML parser");
    return;
  }
  XML_SetElementHandler(parser, startElem, endElem);
  XML_SetCharacterDataHandler(parser, data);
  XML_SetUserData(parser, this);
  XML_SetEntityDeclHandler(parser, entity);
  XML_SetXmlDeclHandler(parser, declaration);
  // Only expat sees what entities become inside an attribute, or without any element and text.
  XML_SetBillionLaughsAttackProtectionActivationThreshold(parser, MAX_UNFOLDED);
  XML_SetBillionLaughsAttackProtectionMaximumAmplification(parser, MAX_FACTOR);
}

void XMLReader::freeParser() {
  XML_ParserFree(parser);
  parser = nullptr;
}

void XMLReader::clear() {
  TreeNode::clear();
  current = this;
  forgetTree();
}

// current is null after an end without a beginning: the rest of the document is lost, but nothing
// crashes.
void XMLReader::readNodeBegin(const char* name, bool) {
  if (current == nullptr) return;
  const std::string given = name;
  // Without a node, the ends that follow have no parent to return to.
  current = takeNode(given) ? current->createSubEntry(given) : nullptr;
}

void XMLReader::readNodeEnd(const char*) {
  if (current != nullptr) current = current->getParent();
}

void XMLReader::readEntryAttri(const std::string& name, const std::string& text, bool) {
  if (current != nullptr && takeAttribute(name, text)) current->createSubAttribute(name, text);
}

void XMLReader::readEntryAttris(const char** attrs) {
  for (; *attrs != nullptr; attrs += 2) readEntryAttri(attrs[0], attrs[1], false);
}

// expat delivers long text line by line: copying the old value each time would take minutes.
void XMLReader::readNodeValue(const char* text, bool) {
  if (current != nullptr && takeText(std::strlen(text))) current->appendLeafValue(text, false);
}

std::vector<unsigned char>* XMLReader::getRawData(const std::string& prefix) {
  rawData.clear();
  rawData.resize(prefix.size() + DECLARATION_SIZE);
  const auto middle = std::copy(prefix.begin(), prefix.end(), rawData.begin());
  std::copy(DECLARATION, DECLARATION + DECLARATION_SIZE, middle);
  toXMLContent(&rawData);
  return &rawData;
}

// The callbacks run inside expat, which is C: no exception (out of memory, or a derived reader's
// own) may pass through its frames. An exception ends the parsing instead, and streamIn returns the
// error status.
template <typename Work>
void XMLReader::guarded(void* userData, Work work) {
  XMLReader* reader = static_cast<XMLReader*>(userData);
  // expat still reports the end of an empty element whose beginning was refused.
  if (reader->refusal != nullptr) return;
  try {
    work(reader);
    // The limit has logged it.
    if (reader->isTreeFull() && reader->refusal == nullptr) {
      reader->refusal = TREE_TOO_LARGE;
      XML_StopParser(reader->parser, XML_FALSE);
    }
  } catch (...) {
    reader->stopParser("an exception ended the parsing");
  }
}

void XMLReader::startElem(void* userData, const char* name, const char** attrs) {
  guarded(userData, [&](XMLReader* reader) {
    reader->countElement(name, attrs);
    if (reader->refusal != nullptr) return;
    reader->readNodeBegin(name, false);
    reader->readEntryAttris(attrs);
  });
}

void XMLReader::endElem(void* userData, const char* name) {
  guarded(userData, [&](XMLReader* reader) { reader->readNodeEnd(name); });
}

void XMLReader::data(void* userData, const char* s, int len) {
  guarded(userData, [&](XMLReader* reader) {
    const std::string text(s, static_cast<size_t>(len));
    reader->countUnfolded(text.size());
    if (reader->refusal == nullptr) reader->readNodeValue(text.c_str(), false);
  });
}

// External entities have no text here and are never loaded; parameter entities are never expanded.
void XMLReader::entity(void* userData, const char* name, int isParameter, const char* text, int len,
                       const char*, const char*, const char*, const char*) {
  if (isParameter != 0 || text == nullptr) return;
  guarded(userData, [&](XMLReader* reader) {
    if (reader->entities.declare(name, std::string(text, static_cast<size_t>(len)))) return;
    reader->stopParser("the document declares too many entities, or nests them too deep");
  });
}

void XMLReader::declaration(void* userData, const char*, const char* encodingName, int) {
  if (encodingName == nullptr) return;
  guarded(userData, [&](XMLReader* reader) { reader->encoding = encodingName; });
}

void XMLReader::countElement(const char* name, const char** attrs) {
  size_t size = ELEMENT_MARKS + std::strlen(name);
  for (; *attrs != nullptr; attrs += 2) {
    size += ATTRIBUTE_MARKS + std::strlen(attrs[0]) + std::strlen(attrs[1]);
  }
  countUnfolded(size);
}

// Compares with the document up to the end of what is being reported (for an entity, its name): the
// result must not depend on where pieces end.
void XMLReader::countUnfolded(size_t size) {
  unfolded += static_cast<long long>(size);
  const long long begin = XML_GetCurrentByteIndex(parser);
  reported = std::max(reported, begin + XML_GetCurrentByteCount(parser));
  if (unfolded > MAX_UNFOLDED && unfolded / MAX_FACTOR > reported) stopUnfolding();
}

void XMLReader::stopUnfolding() { stopParser("the document unfolds to many times its size"); }

// Does nothing if the parser has failed by itself.
void XMLReader::stopParser(const char* why) {
  FLUVIA_LOG(-4, "%s", why);
  refusal = why;
  XML_StopParser(parser, XML_FALSE);
}

}  // namespace webs
