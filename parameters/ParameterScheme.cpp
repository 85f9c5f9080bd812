#include "parameters/ParameterScheme.h"

namespace harvane {

// clang-format off

#define ITEM(name, label) \
  "        <item name='" name "'>\n" \
  "          <label>" label "</label>\n" \
  "        </item>\n"

#define CHANNELS_FORMAT(name, label, group, channels) \
  "      <choice name='" name "'>\n" \
  "        <label>" label "</label>\n" \
  "        <description>Specify the format for the " group " audio channels group. This cantains " \
  "audio channels from " channels ". The numbered options have the following meaning:1 - one mono " \
  "track; 2 - one stereo track; 2+2 - two stereo tracks; 2+2+2 - three stereo tracks; 2+2+2+2 - " \
  "four stereo tracks; 5.1 - one surround track; 5.1+2 - one surround and one stereo tracks; 2+5.1 " \
  "- one stereo and one surround tracks.</description>\n" \
  "        <default>2</default>\n" \
  ITEM("1", "1") \
  ITEM("2", "2") \
  ITEM("3", "2+2") \
  ITEM("4", "2+2+2") \
  ITEM("5", "2+2+2+2") \
  ITEM("6", "5.1") \
  ITEM("7", "5.1+2") \
  ITEM("8", "2+5.1") \
  "      </choice>\n"

// Deliberate: the blanks inside these tags and texts.
#define LOG_TEXT(name, label, description) \
  "      <string name ='" name "'>\n" \
  "        <label>" label "</label >\n" \
  "        <description>" description "</description >\n" \
  "        <maxLength>260</maxLength>\n" \
  "      </string>\n"

#define ENABLED_WHEN(path, dependency, comparison) \
  "    <param path='" path "'>\n" \
  "      <dependency path=\"" dependency "\"/>\n" \
  "      <choose>\n" \
  "        <when condition=\"" dependency " " comparison "\">\n" \
  "          <control enable='true' visible='true'/>\n" \
  "        </when>\n" \
  "        <otherwise>\n" \
  "          <control enable='false' visible='true'/>\n" \
  "        </otherwise>\n" \
  "      </choose>\n" \
  "    </param>\n"

const char kParameterScheme[] =
  "<scheme version=\"1.00\">\n"
  "  <!-- master element declares all the parameters -->\n"
  "  <master>\n"
  "    <!-- gruopType declares a category of parameter. It's used for UI\n"
  "         purpose.  -->\n"
  "    <group name='audio'>\n"
  "      <label>Audio</label>\n"
  "      <choice name='numberOfPasses'>\n"
  "        <label>Plugin usage</label>\n"
  "        <description>Specify if the plugin is used just for analysis or for analysis and "
  "process</description>\n"
  "        <default>2</default>\n"
  "        <item name='1' extData='1'>\n"
  "          <label>Analyze</label>\n"
  "        </item>\n"
  "        <item name='2' extData='2'>\n"
  "          <label>Analyze and process</label>\n"
  "        </item>\n"
  "      </choice>\n"
  "      <choice name='numberOfGroups'>\n"
  "        <label>Number of audio groups</label>\n"
  "        <description>Specify the desired number of audio groups to be processed. A group "
  "contains 8 audio channels.</description>\n"
  "        <default>1</default>\n"
  ITEM("1", "1")
  ITEM("2", "2")
  ITEM("3", "3")
  ITEM("4", "4")
  "      </choice>\n"
  CHANNELS_FORMAT("firstGroupChannelsFormat", "First Group Channels Layout", "first", "0 to 7")
  CHANNELS_FORMAT("secondGroupChannelsFormat", "Second Group Channels Layout", "second", "8 to 15")
  CHANNELS_FORMAT("thirdGroupChannelsFormat", "Third Group Channels Layout", "third", "16 to 23")
  CHANNELS_FORMAT("fourthGroupChannelsFormat", "Fourth Group Channels Layout", "fourth", "24 to 31")
  "    </group>\n"
  "    <group name='normalization'>\n"
  "      <label>Normalization</label>\n"
  "      <choice name='normalisationMode'>\n"
  "        <label>Normalization Parameter</label>\n"
  "        <description>The normalization will be done according to this parameter: Program "
  "Loudness or Max SL. ( Maximum Short Term Loudness ).</description>\n"
  ITEM("0", "Program Loudness")
  ITEM("1", "Max. SL")
  "      </choice>\n"
  "      <float name='Loudness'>\n"
  "        <label>Target Program Loudness (LUFS)</label>\n"
  "        <description>The target value of Program Loudness : Europe -23.00, USA -24.00, or any "
  "value you need (from -30.0 to -12.0).</description>\n"
  "        <range min=\"-30.0\" max=\"-12.0\" default=\"-23.0\"/>\n"
  "      </float>\n"
  "      <float name='ShortTermLoudness'>\n"
  "        <label>Target Max SL (LUFS)</label>\n"
  "        <description>The target value of  Maximum Short Term Loudness: usually -20.00, but you "
  "can choose any value you need (from -30.0 to -12.0).</description>\n"
  "        <range min=\"-30.0\" max=\"-12.0\" default=\"-20.0\"/>\n"
  "      </float>\n"
  "      <float name='MaxTP'>\n"
  "        <label>Target Max TP (dBTP)</label>\n"
  "        <description>The target value of Max True Peak : usually -1.00,  but you can choose any "
  "value you need (from -12.0 to 0.0).</description>\n"
  "        <range min=\"-12.0\" max=\"0.0\" default=\"-1.0\"/>\n"
  "      </float>\n"
  "    </group>\n"
  "    <group name='logging'>\n"
  "      <label>Logging</label>\n"
  LOG_TEXT("logPath", " Path to log files ",
           " Enter the desired path for the log files. If this field is empty logs are stored in "
           "the default location Documents\\HarvaneLogs.")
  LOG_TEXT("logFileName", " Log file name ",
           " Enter the desired name for the log file. If this field is empty logs are saved in the "
           "file with the default name Logdd_Month_Year.")
  LOG_TEXT("logEntryName", " Log entry name ",
           " Enter the desired name for this log entry. If this field is empty logs entries are "
           "saved with the default name JobAt_hh::mm::ss.")
  "      <choice name='frameRate'>\n"
  "        <label>Frame Rate</label>\n"
  "        <description>Video frames rate used for time code logging. This must be the same with "
  "the frame rate of the original video material. If this field is marked as Unspecified time code "
  "log will display milliseconds insteam of frame number.</description>\n"
  "        <default>0</default>\n"
  ITEM("0", "Unspecified")
  ITEM("23.976", "23.976")
  ITEM("24", "24")
  ITEM("25", "25")
  ITEM("29.97", "29.97")
  ITEM("30", "30")
  ITEM("50", "50")
  ITEM("59,94", "59,94")  // Deliberate: a comma, read as 59.
  ITEM("60", "60")
  "      </choice>\n"
  "    </group>\n"
  "  </master>\n"
  "  <!-- The constraints element defines the parameter rules.-->\n"
  "  <constraints>\n"
  ENABLED_WHEN("normalization/Loudness", "normalization/normalisationMode", "= '0'")
  ENABLED_WHEN("normalization/ShortTermLoudness", "normalization/normalisationMode", "= '1'")
  ENABLED_WHEN("audio/secondGroupChannelsFormat", "audio/numberOfGroups", "> '1'")
  ENABLED_WHEN("audio/thirdGroupChannelsFormat", "audio/numberOfGroups", "> '2'")
  ENABLED_WHEN("audio/fourthGroupChannelsFormat", "audio/numberOfGroups", "> '3'")
  "  </constraints>\n"
  "</scheme>\n"
  "\n";

// clang-format on

}  // namespace harvane
