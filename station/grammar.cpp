#include "station/grammar.h"

#include <algorithm>
#include <memory>

#include "station/text.h"

namespace station {
namespace {

constexpr std::size_t kLongestLine = 16 * 1024;  // q7 writes none that is longer

}  // namespace

std::string_view name_of(Step step) {
    constexpr std::array<std::string_view, 14> kNames{
        "start", "buzzer", "panel", "network", "alarm", "rtc", "usb",
        "sata",  "rs485",  "info",  "summary", "end",   "pmp", "watchdog"};
    return kNames.at(static_cast<std::size_t>(step));
}

Mode Mode::of(const std::vector<std::string>& words) {
    constexpr std::array<Step, 12> kTests{Step::start, Step::info,     Step::buzzer, Step::panel,
                                          Step::rs485, Step::alarm,    Step::rtc,    Step::usb,
                                          Step::sata,  Step::watchdog, Step::pmp,    Step::network};
    const bool single = words.size() == 2 || words.size() == 3;
    if (!single) {
        const bool net = !words.empty() && words.front() == "netQ7test";
        return {net ? Kind::net : Kind::console, Step::start};
    }
    std::int64_t number = 0;
    const bool valid = (words[0] == "-o" || words[0] == "-O") && words[1].size() <= 2
                       && parse_number(words[1], 10, number) && number >= 1 && number <= 11;
    if (!valid) return {};
    return {Kind::single, kTests.at(static_cast<std::size_t>(number))};
}

Grammar::Grammar(Evidence& evidence, CommandSeen command, Mode mode)
    : evidence_(evidence), command_(std::move(command)), mode_(mode) {}

// The rows, and those that a line can match by its first byte.
struct Grammar::Table {
    explicit Table(std::vector<Row> all) : rows(std::move(all)) {
        for (std::size_t i = 0; i < rows.size(); ++i) {
            const int first = rows[i].pattern.first_byte();
            for (int byte = 0; byte < 256; ++byte) {
                if (first == -1 || first == byte)
                    by_byte[static_cast<std::size_t>(byte)].push_back(i);
            }
        }
    }

    std::vector<Row> rows;
    std::array<std::vector<std::size_t>, 256> by_byte;
};

const Grammar::Table& Grammar::table() {
    using G = Grammar;
    constexpr Source kReported = Source::reported, kPrinted = Source::printed;
    constexpr Source kError = Source::error;
    const auto row = [](Source source, Step step, const char* pattern, bool (G::*act)(const Row&),
                        const char* first = "", const char* second = "", const char* unit = "") {
        return Row{Pattern(pattern), source, act, step, first, second, unit};
    };
    static const Table rows({
        // Start.
        row(kPrinted, Step::start,
            "g_bSupFrontPanel[{d}],g_iUsbNum[{d}],g_iCordNo[{d}],g_iAlarmOutNum[{d}],"
            "g_iAlarmInNum[{d}],g_sata_port_num[{d}],g_cESataNum[{d}],g_cMiniSASNum[{d}],"
            "g_cSataNewRule[{d}]",
            &G::capability),
        row(kPrinted, Step::start, "no kill avcore", &G::settled),
        row(kPrinted, Step::start, "切换到超级用户失败，可能会对Q7的某些项测试有影响",
            &G::word_fact, "start.root", "no"),
        row(kPrinted, Step::start, "第{d}次测试", &G::repetition),
        row(kPrinted, Step::start, "打开命名管道出错", &G::failure),
        row(kPrinted, Step::start, "参数非法", &G::failure),
        row(kPrinted, Step::start, "请选择测试序号(1~{d})", &G::failure),
        row(kPrinted, Step::start, "请输入正确的测试序号.(1~{d})", &G::failure),
        row(kPrinted, Step::start, "打开hwInfo设备出错!", &G::failure),
        row(kPrinted, Step::start, "初始化看门狗失败!", &G::failure),
        row(kPrinted, Step::start, "sysInit 1 Fatal", &G::failure),
        row(kPrinted, Step::start, "open {w} failed, errno:{d},{s}", &G::failure),
        row(kPrinted, Step::start, "can not creat HB thread", &G::failure),

        // Headings.
        row(kReported, Step::buzzer, "第{d}步:蜂鸣器测试", &G::heading),
        row(kReported, Step::panel, "第{d}步:按键测试", &G::heading),
        row(kReported, Step::network, "第{d}步:网络状态", &G::heading),
        row(kReported, Step::alarm, "第{d}步:报警量测试，请确认已经连接好报警测试装置",
            &G::heading),
        row(kReported, Step::rtc, "第{d}步:开始测试RTC", &G::heading),
        row(kReported, Step::rs485, "第{d}步:485测试", &G::heading),
        row(kReported, Step::info, "第{d}步:CPLD信息", &G::heading),
        row(kReported, Step::start, "第{d}步:", &G::heading_number_alone),
        row(kReported, Step::usb, "USB口测试", &G::heading_behind_number),
        row(kReported, Step::sata, "SATA硬盘测试", &G::heading_behind_number),
        row(kReported, Step::rs485, "请确认已经正确连接好485测试装置", &G::known),

        // Anywhere.
        row(kPrinted, Step::start, "write error file = {s} ,line = {d} ", &G::lost),
        row(kPrinted, Step::buzzer, "open hwInfo error!", &G::failure),
        row(kPrinted, Step::start, "signal failed", &G::failure),
        row(kPrinted, Step::start, "tcsetattr failed", &G::failure),
        row(kPrinted, Step::panel, "receive {d}:{d} replies", &G::interrupted),
        row(kPrinted, Step::alarm, "success is {d}, and error is {d}", &G::interrupted),
        row(kPrinted, Step::rtc, "read rtc successfully {d} times : failed {d} times",
            &G::interrupted),

        // Front panel.
        row(kPrinted, Step::panel, "面板输入ENTER点亮1.3.5.7 奇数通道灯再点亮2.4.6.8偶数通道灯",
            &G::known),
        row(kPrinted, Step::panel, "面板输入UP点亮所有录象灯+所有功能灯", &G::known),
        row(kPrinted, Step::panel, "面板输入DOWN关闭所有录象灯+所有功能灯", &G::known),
        row(kPrinted, Step::panel, "面板输入LEFT点亮所有网络连接显示灯", &G::known),
        row(kPrinted, Step::panel, "面板输入RIGHT关闭所有网络连接显示灯", &G::known),
        row(kPrinted, Step::panel, "面板输入ESC退出测试", &G::known),
        row(kPrinted, Step::panel, "unknow key", &G::count, "unknown_keys"),
        row(kPrinted, Step::panel, "control pannel is pressed", &G::count, "other_frames"),
        row(kPrinted, Step::panel, "main control keyboard is pressed", &G::count, "other_frames"),
        row(kPrinted, Step::panel, "other messages is received", &G::count, "other_frames"),
        row(kPrinted, Step::panel, "read failed", &G::count, "read_failures"),
        row(kReported, Step::panel, "led_test_func error", &G::failure),

        // Network.
        row(kPrinted, Step::network, "现在测试电口网络", &G::port_type, "copper"),
        row(kPrinted, Step::network, "现在测试光口网络", &G::port_type, "fibre"),
        row(kPrinted, Step::network, "切换电口失败", &G::port_refused, "copper"),
        row(kPrinted, Step::network, "切换光口失败", &G::port_refused, "fibre"),
        row(kPrinted, Step::network, "creat socket error", &G::no_socket),
        row(kReported, Step::network, "网卡个数超过支持上限,网口个数为 {d}", &G::failure),
        row(kReported, Step::network, "网卡{d}:{s}", &G::port_number),
        row(kReported, Step::network, "网络连接接通 ", &G::port_link, "up"),
        row(kReported, Step::network, "网络连接断开 ", &G::port_link, "down"),
        row(kReported, Step::network, "ETHTOOL_GLINK failed: ", &G::port_link, "unknown"),
        row(kReported, Step::network, "全双工  {d}M", &G::port_speed, "full"),
        row(kReported, Step::network, "半双工  {d}M", &G::port_speed, "half"),
        row(kReported, Step::network, "全双工  net speed error", &G::port_speed, "full"),
        row(kReported, Step::network, "半双工  net speed error", &G::port_speed, "half"),
        row(kReported, Step::network, "ETHTOOL_GLINK failed", &G::port_speed_failed),
        row(kReported, Step::network, "请检查网络测试环境是否为千M网络", &G::port_hint),
        row(kPrinted, Step::network, "ioctl ZEBIO_GET_BOOT_PARMS error", &G::failure),

        // Alarm.
        row(kReported, Step::alarm, "报警输出个数为{d},暂时不支持该个数,请检查CPLD信息是否正确",
            &G::failure),
        row(kReported, Step::alarm, "报警输入有{d}个,报警输出有{d}个", &G::alarm_counts),
        row(kPrinted, Step::alarm, "open /dev/iop failed", &G::failure),
        row(kReported, Step::alarm, "IOCTL ERROR", &G::failure),
        row(kReported, Step::alarm, " 断开报警输出时, 报警输入正常", &G::alarm_idle, "good"),
        row(kReported, Step::alarm, " 断开报警输出时, 报警输入为 {x} ，报警输入应为 0",
            &G::alarm_idle, "bad"),
        row(kReported, Step::alarm, " 报警输出为 {x}, 报警输入为 {x} ，报警输入应为 {x}",
            &G::alarm_mismatch),
        row(kReported, Step::alarm, "成功 {d}, 失败 {d}", &G::alarm_result),

        // RTC.
        row(kReported, Step::rtc, "{d}-{d}-{d} {d}:{d}:{d}", &G::clock),
        row(kReported, Step::rtc, "时钟时间 {d}-{d}-{d} {d}:{d}:{d}", &G::clock, "clock"),
        row(kReported, Step::rtc, "系统时间 {d}-{d}-{d} {d}:{d}:{d}", &G::clock, "system"),

        // USB.
        row(kReported, Step::usb, "/dev/{w} 剩余空间 = {d}M", &G::usb_disk),
        row(kReported, Step::usb, "Failed to statfs{s}", &G::usb_failed),
        row(kReported, Step::usb, "没有接usb", &G::usb_none),
        row(kPrinted, Step::usb, "后面板上面的USB口插着的U盘是3.0U盘", &G::usb_rear, "upper",
            "3.0"),
        row(kPrinted, Step::usb, "后面板上面的USB口插着的U盘是2.0U盘或者鼠标", &G::usb_rear,
            "upper", "2.0"),
        row(kPrinted, Step::usb, "后面板上面的USB口没有插U盘", &G::usb_rear, "upper", "none"),
        row(kPrinted, Step::usb, "后面板下面的USB口插着的U盘是3.0U盘", &G::usb_rear, "lower",
            "3.0"),
        row(kPrinted, Step::usb, "后面板下面的USB口插着的U盘是2.0U盘或者鼠标", &G::usb_rear,
            "lower", "2.0"),
        row(kPrinted, Step::usb, "后面板下面的USB口没有插U盘", &G::usb_rear, "lower", "none"),
        row(kPrinted, Step::usb, "3.0usb插3.0U盘测试成功,请在10s内将2.0U盘插入3.0usb进行测试",
            &G::usb_again),
        row(kError, Step::usb, "/dev: {s}", &G::failure),

        // SATA and miniSAS.
        row(kReported, Step::sata, "设备有{d}个sata口", &G::disk_ports, "sata.ports"),
        row(kReported, Step::sata, "设备有{d}个miniSAS口", &G::disk_ports, "minisas.ports"),
        row(kReported, Step::sata, "/dev/{w} 不存在", &G::disk_absent),
        row(kReported, Step::sata, "/dev/{w} 无法获取硬盘容量", &G::disk_without_size),
        row(kReported, Step::sata, "/dev/{w}", &G::disk_begins),
        row(kReported, Step::sata, "序列号    :{s}", &G::disk_text, "serial"),
        row(kReported, Step::sata, "型号      :{s}", &G::disk_text, "model"),
        row(kReported, Step::sata, "固件版本  :{s}", &G::disk_text, "firmware"),
        row(kReported, Step::sata, "硬盘容量  :{d}GB", &G::disk_size),
        row(kPrinted, Step::sata, "send IDENTIFY DEVICE command, return {d}", &G::failure),
        row(kPrinted, Step::sata, "invalid devName", &G::failure),
        row(kPrinted, Step::sata, "Can not open {s} ", &G::failure),
        row(kPrinted, Step::sata, "Can not get {s} size ", &G::failure),
        row(kPrinted, Step::sata, "没有找到miniSAS口 ", &G::minisas_absent),
        row(kError, Step::sata, "scandir fail, errno = {d}({s})", &G::failure),

        // RS-485.
        row(kReported, Step::rs485, "正确:    {d}字节  ", &G::rs485_first, "complete"),
        row(kReported, Step::rs485, "错误:    {d}字节 ", &G::rs485_second, "complete"),
        row(kReported, Step::rs485, "发送  {d}字节成功", &G::rs485_first, "timeout"),
        row(kReported, Step::rs485, "    {d}字节失败 ", &G::rs485_second, "timeout"),
        row(kPrinted, Step::rs485, "open {w} failed", &G::failure),
        row(kPrinted, Step::rs485, "no more data can write in 5 seconds,exit ", &G::failure),
        row(kError, Step::rs485, "select(): {s}", &G::failure),
        row(kError, Step::rs485, "read select(): {s}", &G::failure),

        // Board information.
        row(kReported, Step::info, "无法识别的CPLD信息({s})", &G::failure),
        row(kReported, Step::info, "设备类型 : {s}({s})", &G::info_model),
        row(kReported, Step::info, "面板类型:{s}", &G::text_fact, "info.panel"),
        row(kReported, Step::info, "ARM主频  : {s}", &G::text_fact, "info.arm"),
        row(kReported, Step::info, "内存频率 : {s}", &G::text_fact, "info.memory_frequency"),
        row(kReported, Step::info, "内存大小 : {s}", &G::text_fact, "info.memory"),
        row(kReported, Step::info, "FLASH大小: {s}", &G::text_fact, "info.flash"),
        row(kReported, Step::info, "CPLD版本 : {s}年{s}月{s}日", &G::text_fact, "info.cpld", "-"),
        row(kReported, Step::info, "报警 I/O : {s}", &G::text_fact, "info.alarm_io"),

        // Summary.
        row(kReported, Step::summary,
            "----------------------------------------------------------------", &G::rule),
        row(kReported, Step::summary, "Q7测试结果如下:", &G::summary_begins),
        row(kReported, Step::summary, "USB口       : {d}  ", &G::number_fact, "usb.found"),
        row(kReported, Step::summary, "SATA口      : {d}  ", &G::number_fact, "sata.found"),
        row(kReported, Step::summary, "网络状态      : 成功  ", &G::word_fact, "summary.network",
            "good"),
        row(kReported, Step::summary, "网络状态      : 失败  ", &G::word_fact, "summary.network",
            "bad"),
        row(kReported, Step::summary, "485口       : 成功  ", &G::word_fact, "summary.rs485",
            "good"),
        row(kReported, Step::summary, "485口       : 失败  ", &G::word_fact, "summary.rs485",
            "bad"),
        row(kReported, Step::summary, "报警口      : 成功  ", &G::word_fact, "summary.alarm",
            "good"),
        row(kReported, Step::summary, "报警口      : 失败  ", &G::word_fact, "summary.alarm",
            "bad"),
        row(kReported, Step::summary, "USB口       : 成功  ", &G::word_fact, "summary.usb", "good"),
        row(kReported, Step::summary, "USB口       : 失败  ", &G::word_fact, "summary.usb", "bad"),
        row(kReported, Step::summary, "SATA口       : 成功  ", &G::word_fact, "summary.sata",
            "good"),
        row(kReported, Step::summary, "SATA口       : 端口{s}无连接", &G::sata_missing),
        row(kPrinted, Step::summary, "miniSAS口正常", &G::word_fact, "summary.minisas", "good"),
        row(kPrinted, Step::summary, "miniSAS口异常", &G::word_fact, "summary.minisas", "bad"),
        row(kReported, Step::summary, "Rtc时钟       : 由检测人员判断  ", &G::word_fact,
            "summary.rtc", "person"),
        row(kReported, Step::summary, "测试结果:  OK!", &G::console_ok),
        row(kPrinted, Step::summary, "网络状态    : error occured!  ", &G::console_faults,
            "summary.network"),
        row(kPrinted, Step::summary, "485口       : error occured!  ", &G::console_faults,
            "summary.rs485"),
        row(kPrinted, Step::summary, "报警口      : error occured!  ", &G::console_faults,
            "summary.alarm"),
        row(kPrinted, Step::summary, "Rtc时钟     : error occured!  ", &G::console_faults,
            "summary.rtc"),
        row(kPrinted, Step::summary, "USB口       : error occured!  ", &G::console_faults,
            "summary.usb"),
        row(kPrinted, Step::summary, "SATA口      : 端口{s}无连接", &G::sata_missing),

        // End.
        row(kReported, Step::end, "测试结束", &G::run_end),
        row(kReported, Step::end, "Q7TESTEND", &G::net_end),
        row(kPrinted, Step::end, "测试结束,系统将要重新启动,并恢复出厂设置", &G::run_end,
            "restart"),
        row(kPrinted, Step::end, "remove /dav2/devCfg.bin ERROR", &G::word_fact, "sequence.config",
            "missing"),
        row(kPrinted, Step::end, "remove /dav2/devCfg_backup.bin ERROR", &G::word_fact,
            "sequence.config_backup", "missing"),
        row(kPrinted, Step::end, "failed to open watchdog", &G::failure),
        row(kPrinted, Step::end, "set watchdog timeout failed", &G::failure),

        // Port multipliers.
        row(kPrinted, Step::pmp, "sata_port_num = {d} ", &G::number_fact, "pmp.ports"),
        row(kPrinted, Step::pmp, "硬盘个数为{d},请检查CPLD是否正确烧写", &G::failure),
        row(kPrinted, Step::pmp, "open /dev/{w} fail!", &G::known),
        row(kPrinted, Step::pmp, "open /dev/{w} success!", &G::chip_disk),
        row(kPrinted, Step::pmp, "test..{d}\r", &G::chip_number),
        row(kPrinted, Step::pmp, "INFO: JMB39X device exist", &G::known),
        row(kPrinted, Step::pmp, "INFO: JMB39X CHIP ID = 32h, Revision ID = {s}", &G::chip_text,
            "revision"),
        row(kPrinted, Step::pmp, "INFO: Binfile ID = {s}", &G::known),
        row(kPrinted, Step::pmp, "INFO: Revision ID = {s}", &G::known),
        row(kPrinted, Step::pmp, "INFO: Bonding = {s}", &G::chip_text, "bonding"),
        row(kPrinted, Step::pmp, "INFO: Binfile length = {d} bytes", &G::chip_text, "image",
            "number", "bytes"),
        row(kPrinted, Step::pmp, "INFO: Flash is found by chk{d}", &G::known),
        row(kPrinted, Step::pmp, "INFO: Verify flash #{d}", &G::known),
        row(kPrinted, Step::pmp, "INFO: Total verify size = {d}", &G::known),
        row(kPrinted, Step::pmp, "INFO: Verify complete", &G::known),
        row(kPrinted, Step::pmp, "INFO: Flash #{d} is the same as binary file", &G::chip_flash,
            "same"),
        row(kPrinted, Step::pmp, "INFO: Upload flash #{d}", &G::known),
        row(kPrinted, Step::pmp, "INFO: Total upload size = {d}", &G::known),
        row(kPrinted, Step::pmp, "INFO: Upload complete", &G::chip_flash, "updated"),
        row(kPrinted, Step::pmp, "INFO: Finish", &G::known),
        row(kPrinted, Step::pmp, "WRN : chkbinfile, revision ID is mismatch ({s})", &G::failure),
        row(kPrinted, Step::pmp, "      continue!{s}", &G::continued),
        row(kPrinted, Step::pmp, "WRN : chkflashsts, chk1 fail, try chk0 ({s})", &G::known),
        row(kPrinted, Step::pmp, "WRN : verifycode, verify fail ({s}", &G::known),
        row(kPrinted, Step::pmp, "WRN : verifycode, verify not complete", &G::known),
        row(kPrinted, Step::pmp, ".{s}", &G::continued),
        row(kPrinted, Step::pmp, "ERR{s}", &G::chip_error),
        row(kPrinted, Step::pmp, "update the firmware success, now reset the jmb321!\r", &G::count,
            "chip_resets"),
        row(kPrinted, Step::pmp, "测试结果如下", &G::known),
        row(kPrinted, Step::pmp, "Chip{d} 正常", &G::chip_state, "good"),
        row(kPrinted, Step::pmp, "Chip{d} 发生错误", &G::chip_state, "error"),
        row(kPrinted, Step::pmp, "Chip{d} 未进行测试", &G::chip_state, "not-tested"),
    });
    return rows;
}

// Matching.

void Grammar::take(Channel channel, const TextLine& line) {
    line_ = &line;
    channel_ = channel;
    offset_ = 0;
    pieces_ = evidence_.pieces.size();
    for (const Fragment& fragment : line.fragments) {
        Piece piece;
        piece.line = fragment.line;
        piece.time_us = fragment.time_us;
        piece.channel = channel;
        piece.command = command_.number;
        piece.text = gbk_to_utf8(line.bytes.substr(fragment.begin, fragment.end - fragment.begin));
        evidence_.pieces.push_back(std::move(piece));
    }
    bool explained = line.bytes.empty();
    if (line.bytes.size() > kLongestLine) {
        explained = false;
    } else if (!explained && channel == Channel::record) {
        explained = match_rows(Source::reported, line.bytes);
    } else if (!explained && channel == Channel::err) {
        explained = match_rows(Source::error, line.bytes);
    } else if (!explained) {
        explained = match_rows(Source::printed, line.bytes)
                    || (!two_channels() && match_rows(Source::reported, line.bytes));
    }
    if (!explained) find(Finding::Kind::unexplained);
    const std::string step = channel == Channel::err ? std::string{} : prefixed(name_of(current()));
    for (std::size_t i = pieces_; i < evidence_.pieces.size(); ++i)
        evidence_.pieces[i].step = step;
}

void Grammar::peek(Channel channel, const TextLine& line) {
    line_ = &line;
    channel_ = channel;
    if ((channel == Channel::record) != two_channels() || channel == Channel::err) return;
    for (const Row& row : table().rows) {
        if (row.act == &Grammar::heading && row.pattern.match(line.bytes, captures_)) heading(row);
    }
}

bool Grammar::match_rows(Source source, std::string_view line) {
    const auto byte = static_cast<unsigned char>(line.front());
    for (const std::size_t i : table().by_byte[byte]) {
        const Row& row = table().rows[i];
        if (row.source == source && row.pattern.match(line, captures_) && (this->*row.act)(row)) {
            return true;
        }
    }
    return false;
}

// The rest of the line, from a capture on, as a line of its own.
bool Grammar::match_part(Source source, std::string_view line, std::size_t offset) {
    if (line.empty()) return true;
    offset_ += offset;
    if (match_rows(source, line)) return true;
    if (source == Source::printed || two_channels()) return false;
    return match_rows(Source::printed, line);
}

Step Grammar::current() const {
    const bool printed_alone = two_channels() && channel_ == Channel::out;
    return printed_alone ? now_.printed_step : now_.step;
}

// Whether a row may stand at this place of its channel. Printed lines of net mode have no headings:
// they may only follow each other in the order of the steps.
bool Grammar::may_stand(const Row& row) {
    if (two_channels() && channel_ == Channel::out) {
        if (row.step < now_.printed_step) return false;
        now_.printed_step = row.step;
        return true;
    }
    return row.step == now_.step;
}

// Facts.

std::string Grammar::prefixed(std::string_view name) const {
    std::string prefix = command_.prefix;
    if (repetition_ > 1) prefix += "repeat." + std::to_string(repetition_) + ".";
    return prefix + std::string(name);
}

bool Grammar::add(std::string name, Value value, const char* unit, int line, bool derived,
                  std::string doubt) {
    name = prefixed(name);
    if (!evidence_.places.emplace(name, evidence_.facts.size()).second) return false;
    const std::size_t skip = command_.prefix.size()
                             + (repetition_ > 1 ? prefixed("").size() - command_.prefix.size() : 0);
    const std::string group = name.substr(skip, name.find('.', skip) - skip);
    Fact fact;
    fact.step = prefixed(group == "minisas" ? "sata" : group == "sequence" ? "end" : group);
    fact.name = std::move(name);
    fact.value = std::move(value);
    fact.unit = unit;
    fact.line = line;
    fact.derived = derived;
    fact.doubt = std::move(doubt);
    evidence_.facts.push_back(std::move(fact));
    return true;
}

std::size_t Grammar::piece_at(std::size_t offset) const {
    std::size_t place = 0;
    while (place + 1 < line_->fragments.size() && line_->fragments[place].end <= offset)
        ++place;
    return pieces_ + place;
}

void Grammar::attach(std::size_t piece, std::size_t fact) {
    Piece& target = evidence_.pieces[piece];
    target.kind = Piece::Kind::fact;
    target.facts.push_back(fact);
}

bool Grammar::add_here(const std::string& name, Value value, const char* unit) {
    const std::size_t piece = piece_at(offset_);
    if (!add(name, std::move(value), unit, evidence_.pieces[piece].line)) return false;
    attach(piece, evidence_.facts.size() - 1);
    return true;
}

bool Grammar::add_at(std::size_t capture, const std::string& name, Value value, const char* unit) {
    const std::size_t piece = piece_at(offset_ + captures_[capture].at);
    if (!add(name, std::move(value), unit, evidence_.pieces[piece].line)) return false;
    attach(piece, evidence_.facts.size() - 1);
    return true;
}

void Grammar::derive(const std::string& name, Value value, int line, const char* unit) {
    add(name, std::move(value), unit, line, true);
}

// The line at hand is a finding.
void Grammar::find(Finding::Kind kind) {
    Finding finding;
    finding.kind = kind;
    finding.command = command_.number;
    finding.line = evidence_.pieces[pieces_].line;
    finding.channel = channel_;
    if (channel_ != Channel::err) finding.step = prefixed(name_of(current()));
    finding.text = gbk_to_utf8(line_->bytes);
    for (std::size_t i = pieces_; i < evidence_.pieces.size(); ++i) {
        evidence_.pieces[i].kind =
            kind == Finding::Kind::unexplained ? Piece::Kind::unexplained : Piece::Kind::failure;
    }
    evidence_.findings.push_back(std::move(finding));
}

void Grammar::see_step(Step step) {
    const Fragment& place = line_->fragments.front();
    if (!evidence_.steps.empty() && evidence_.steps.back().command == command_.number) {
        evidence_.steps.back().finished = true;
    }
    evidence_.steps.push_back(
        {command_.number, prefixed(name_of(step)), place.line, place.time_us, false});
    now_.step = step;
    now_.seen.push_back(step);
    now_.step_names.emplace_back(name_of(step));
    if (now_.first_step_line == 0) now_.first_step_line = place.line;
}

// Acts that many rows share.

bool Grammar::known(const Row& row) { return may_stand(row); }

// Whatever was going on, such a text tells of a fault.
bool Grammar::failure(const Row& row) {
    if (two_channels() && channel_ == Channel::out && row.step > now_.printed_step) {
        now_.printed_step = row.step;
    }
    find(Finding::Kind::failure);
    return true;
}

bool Grammar::lost(const Row&) {
    find(Finding::Kind::lost_record);
    return true;
}

bool Grammar::interrupted(const Row&) {
    find(Finding::Kind::interrupted);
    return true;
}

// Of several places, joined by row.second.
bool Grammar::text_fact(const Row& row) {
    if (!may_stand(row)) return false;
    std::string value;
    for (const Capture& capture : captures_)
        value += (value.empty() ? "" : row.second) + gbk_to_utf8(capture.text);
    return add_at(0, row.first, value);
}

bool Grammar::number_fact(const Row& row) {
    return may_stand(row) && add_at(0, row.first, captures_[0].number, row.unit);
}

bool Grammar::word_fact(const Row& row) {
    return may_stand(row) && add_here(row.first, std::string(row.second));
}

bool Grammar::count(const Row& row) {
    if (!may_stand(row)) return false;
    const std::string_view name = row.first;
    ++(name == "unknown_keys"    ? now_.unknown_keys
       : name == "other_frames"  ? now_.other_frames
       : name == "read_failures" ? now_.read_failures
                                 : now_.chip_resets);
    return true;
}

// Takes what stands behind this text as a line of its own.
bool Grammar::continued(const Row& row) {
    if (!may_stand(row)) return false;
    const Capture rest = captures_[0];
    const std::size_t skip = std::min(rest.text.find_first_not_of('.'), rest.text.size());
    return match_part(row.source, rest.text.substr(skip), rest.at + skip);
}

}  // namespace station
