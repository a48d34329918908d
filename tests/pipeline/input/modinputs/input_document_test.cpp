#include "pipeline/input/modinputs/input_document.h"

namespace velmox {
namespace {

TEST(InputDocument, HasItsForm)
{
    InputDocument document{{"here", "https://h:1", "a<b"}, u"C:\\db\\modinputs\\S", {}};
    document.stanzas["S://x\t\"y\""].set("<key>", "a\nb\rc & 'd'\x01\xff");
    EXPECT_EQ(document.toXml(), R"(<?xml version="1.0" encoding="UTF-8"?>
<input>
  <server_host>here</server_host>
  <server_uri>https://h:1</server_uri>
  <session_key>a&lt;b</session_key>
  <checkpoint_dir>C:\db\modinputs\S</checkpoint_dir>
  <configuration>
    <stanza name="S://x&#9;&quot;y&quot;">
      <param name="&lt;key&gt;">a
b&#13;c &amp; &apos;d&apos;\x01)"
                                "\xEF\xBF\xBD"
                                R"(</param>
    </stanza>
  </configuration>
</input>
)");
}

} // namespace
} // namespace velmox
