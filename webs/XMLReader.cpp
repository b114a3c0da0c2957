#include "webs/XMLReader.h"

#include <expat.h>

#include <algorithm>

#include "util/Log.h"

namespace webs {
namespace {

const char DECLARATION[] = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";
const size_t DECLARATION_SIZE = sizeof(DECLARATION) - 1;

}  // namespace

XMLReader::XMLReader() : TreeNode(nullptr), current(this) {}

XMLReader::~XMLReader() {
  freeParser();
  TreeNode::clear();
  TreeNode::clean();
}

int XMLReader::streamIn(const char* data, int len, int isFinal) {
  return XML_Parse(parser, data, len, isFinal);
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
  parser = XML_ParserCreate(nullptr);
  if (parser == nullptr) {
    FLUVIA_LOG(-4, "no memory for an XML parser");
    return;
  }
  XML_SetElementHandler(parser, startElem, endElem);
  XML_SetCharacterDataHandler(parser, data);
  XML_SetUserData(parser, this);
}

void XMLReader::freeParser() {
  XML_ParserFree(parser);
  parser = nullptr;
}

void XMLReader::clear() {
  TreeNode::clear();
  current = this;
}

// current is null after an end without a beginning: the document is lost, but nothing crashes.
void XMLReader::readNodeBegin(const char* name, bool) {
  if (current != nullptr) current = current->createSubEntry(name);
}

void XMLReader::readNodeEnd(const char*) {
  if (current != nullptr) current = current->getParent();
}

void XMLReader::readEntryAttri(const std::string& name, const std::string& text, bool) {
  if (current != nullptr) current->createSubAttribute(name, text);
}

void XMLReader::readEntryAttris(const char** attrs) {
  for (; *attrs != nullptr; attrs += 2) readEntryAttri(attrs[0], attrs[1], false);
}

// expat hands out long text line by line: copying the old value each time would take minutes.
void XMLReader::readNodeValue(const char* text, bool) {
  if (current != nullptr) current->appendLeafValue(text, false);
}

std::vector<unsigned char>* XMLReader::getRawData(const std::string& prefix) {
  rawData.clear();
  rawData.resize(prefix.size() + DECLARATION_SIZE);
  const auto middle = std::copy(prefix.begin(), prefix.end(), rawData.begin());
  std::copy(DECLARATION, DECLARATION + DECLARATION_SIZE, middle);
  toXMLContent(&rawData);
  return &rawData;
}

// The callbacks run inside expat, which is C: no exception (memory, or a derived reader's own) may
// pass through its frames. It ends the parsing instead, and streamIn returns the error status.
void XMLReader::startElem(void* userData, const char* name, const char** attrs) {
  XMLReader* reader = static_cast<XMLReader*>(userData);
  try {
    reader->readNodeBegin(name, false);
    reader->readEntryAttris(attrs);
  } catch (...) {
    reader->stopParser();
  }
}

void XMLReader::endElem(void* userData, const char* name) {
  XMLReader* reader = static_cast<XMLReader*>(userData);
  try {
    reader->readNodeEnd(name);
  } catch (...) {
    reader->stopParser();
  }
}

void XMLReader::data(void* userData, const char* s, int len) {
  XMLReader* reader = static_cast<XMLReader*>(userData);
  try {
    reader->readNodeValue(std::string(s, static_cast<size_t>(len)).c_str(), false);
  } catch (...) {
    reader->stopParser();
  }
}

void XMLReader::stopParser() {
  FLUVIA_LOG(-4, "an exception ended the parsing");
  XML_StopParser(parser, XML_FALSE);
}

}  // namespace webs
